#include "org/tree_patch.h"

#include <algorithm>
#include <map>
#include <unordered_map>
#include <unordered_set>

#include "org/sec_tree.h"

namespace orvane::org {
namespace {

using LinePtr = std::shared_ptr<const SecTreeLine>;

constexpr std::string_view kBranch = "├";
constexpr std::string_view kLastBranch = "└";
constexpr std::string_view kVertical = "｜";
constexpr std::string_view kBlank = "　";
constexpr std::string_view kTopParent = "9999";

// The level of a drawn line: the number of separators in its prefix.
size_t Depth(const SecTreeLine& line) {
  return static_cast<size_t>(std::count(line[kPrefixColumn].begin(), line[kPrefixColumn].end(), kLevelSeparator));
}

size_t PathDepth(const SecTreeLine& line) {
  return static_cast<size_t>(std::count(line[kSecTree].begin(), line[kSecTree].end(), '/'));
}

std::vector<std::string_view> Glyphs(std::string_view prefix) {
  std::vector<std::string_view> out;
  size_t start = 0;
  for (size_t i = 0; i <= prefix.size(); ++i) {
    if (i == prefix.size() || prefix[i] == kLevelSeparator) {
      out.push_back(prefix.substr(start, i - start));
      start = i + 1;
    }
  }
  return out;
}

// One child of a parent with the lines of its subtree, in drawn order.
using Block = std::vector<LinePtr>;

// Sibling orders a full drawing sorts the same way as a byte comparison:
// digits of one width, no two alike.
bool OrdersAreUnambiguous(const std::vector<Block>& blocks) {
  std::unordered_set<std::string_view> seen;
  size_t width = 0;
  for (const Block& b : blocks) {
    const std::string& seq = (*b[0])[kSecSeq];
    if (seq.empty() || !std::all_of(seq.begin(), seq.end(), [](char c) { return c >= '0' && c <= '9'; })) return false;
    if (width == 0) width = seq.size();
    if (seq.size() != width || !seen.insert(seq).second) return false;
  }
  return true;
}

class Patcher {
 public:
  Patcher(SecTreeLines& lines, const std::unordered_set<std::string>& removed) : lines_(lines), removed_(removed) {}

  std::map<std::string, Block>& pool() { return pool_; }
  size_t dropped() const { return dropped_; }

  // Lays out the children of `parent` again: the ones that left go to the
  // pool, removed leaves are dropped, the pool's new children join, all in
  // order of SEC_SEQ, with their glyphs redrawn where their place changed.
  bool Relayout(const std::string& parent) {
    size_t begin = 0, end = lines_.size(), child_depth = 0;
    std::vector<std::string> head;
    long parent_index = -1;
    if (parent != kTopParent) {
      for (size_t i = 0; i < lines_.size(); ++i)
        if ((*lines_[i])[kSecCd] == parent) parent_index = static_cast<long>(i);
      if (parent_index < 0) return false;
      const SecTreeLine& p = *lines_[parent_index];
      const size_t depth = Depth(p);
      child_depth = depth + 1;
      begin = static_cast<size_t>(parent_index) + 1;
      end = begin;
      while (end < lines_.size() && Depth(*lines_[end]) > depth) ++end;
      for (std::string_view g : Glyphs(p[kPrefixColumn])) head.emplace_back(g);
      if (head.back() == kBranch) {
        head.back() = kVertical;
      } else if (head.back() == kLastBranch) {
        head.back() = kBlank;
      } else {
        return false;
      }
    }
    std::vector<Block> blocks;
    for (size_t i = begin; i < end; ++i) {
      const size_t depth = Depth(*lines_[i]);
      if (depth == child_depth) {
        blocks.emplace_back();
      } else if (blocks.empty() || depth < child_depth) {
        return false;
      }
      blocks.back().push_back(lines_[i]);
    }
    std::vector<Block> kept;
    for (Block& b : blocks) {
      const SecTreeLine& first = *b[0];
      if (removed_.count(first[kSecCd])) {
        if (b.size() != 1) return false;  // only leaves are deleted
        ++dropped_;
      } else if (first[kJoiSec] != parent) {
        if (!pool_.emplace(first[kSecCd], std::move(b)).second) return false;
      } else {
        kept.push_back(std::move(b));
      }
    }
    for (auto it = pool_.begin(); it != pool_.end();) {
      if ((*it->second[0])[kJoiSec] == parent) {
        kept.push_back(std::move(it->second));
        it = pool_.erase(it);
      } else {
        ++it;
      }
    }
    if (!OrdersAreUnambiguous(kept)) return false;
    std::sort(kept.begin(), kept.end(),
              [](const Block& a, const Block& b) { return (*a[0])[kSecSeq] < (*b[0])[kSecSeq]; });

    SecTreeLines region;
    region.reserve(end - begin + 1);
    for (size_t i = 0; i < kept.size(); ++i)
      if (!Redraw(kept[i], head, child_depth, i + 1 == kept.size(), region)) return false;

    SecTreeLines out;
    out.reserve(lines_.size() - (end - begin) + region.size());
    out.insert(out.end(), lines_.begin(), lines_.begin() + static_cast<long>(begin));
    if (parent_index >= 0) {
      const std::string has_children(1, kept.empty() ? '0' : '1');
      if ((*out.back())[kHasChildrenColumn] != has_children) {
        auto line = std::make_shared<SecTreeLine>(*out.back());
        (*line)[kHasChildrenColumn] = has_children;
        out.back() = std::move(line);
      }
    }
    out.insert(out.end(), region.begin(), region.end());
    out.insert(out.end(), lines_.begin() + static_cast<long>(end), lines_.end());
    lines_ = std::move(out);
    return true;
  }

 private:
  // A child's block at `depth` below `head`: the child's own glyph, and its
  // descendants' glyph at that level, follow whether it is the last child.
  static bool Redraw(const Block& block, const std::vector<std::string>& head, size_t depth, bool last,
                     SecTreeLines& out) {
    const SecTreeLine& first = *block[0];
    const size_t old_depth = Depth(first);
    std::string lead;
    for (const std::string& g : head) lead.append(g).push_back(kLevelSeparator);
    if (old_depth == depth && first[kPrefixColumn] == lead + std::string(last ? kLastBranch : kBranch)) {
      out.insert(out.end(), block.begin(), block.end());  // in its place already
      return true;
    }
    for (size_t i = 0; i < block.size(); ++i) {
      const SecTreeLine& line = *block[i];
      std::vector<std::string_view> glyphs = Glyphs(line[kPrefixColumn]);
      if (glyphs.size() <= old_depth) return false;
      std::string prefix = lead;
      prefix += i == 0 ? (last ? kLastBranch : kBranch) : (last ? kBlank : kVertical);
      for (size_t g = old_depth + 1; g < glyphs.size(); ++g) prefix.append(1, kLevelSeparator).append(glyphs[g]);
      // A full drawing indents by the path: it must agree with the nesting.
      if (PathDepth(line) != depth + glyphs.size() - 1 - old_depth) return false;
      if (prefix == line[kPrefixColumn]) {
        out.push_back(block[i]);
      } else {
        auto copy = std::make_shared<SecTreeLine>(line);
        (*copy)[kPrefixColumn] = std::move(prefix);
        out.push_back(std::move(copy));
      }
    }
    return true;
  }

  SecTreeLines& lines_;
  const std::unordered_set<std::string>& removed_;
  std::map<std::string, Block> pool_;
  size_t dropped_ = 0;
};

}  // namespace

bool ApplyTreePatch(const SecTreeLines& base, const TreePatch& patch, SecTreeLines& out) {
  // Sections without a drawn parent leave empty lines at the end.
  if (base.empty() || (*base.back())[kSecCd].empty()) return false;
  SecTreeLines lines = base;
  std::vector<std::string> relaid;

  auto find_in = [&](const std::string& code) -> long {
    for (size_t i = 0; i < lines.size(); ++i)
      if ((*lines[i])[kSecCd] == code) return static_cast<long>(i);
    return -1;
  };
  if (!patch.moved.empty()) {
    long i = find_in(patch.moved);
    if (i < 0) return false;
    relaid.push_back((*lines[i])[kJoiSec]);
  }
  relaid.insert(relaid.end(), patch.relaid.begin(), patch.relaid.end());

  // The changed values, line by line; many at once are found through an index.
  std::unordered_map<std::string_view, size_t> index;
  if (patch.changed.size() > 8) {
    index.reserve(base.size());
    for (size_t i = 0; i < base.size(); ++i) index.emplace((*base[i])[kSecCd], i);
  }
  const std::unordered_set<std::string> added(patch.added.begin(), patch.added.end());
  std::unordered_set<std::string> removed(patch.removed.begin(), patch.removed.end());
  std::map<std::string, Block> fresh;
  for (const TreePatch::Values& v : patch.changed) {
    if (added.count(v.sec_cd)) {
      auto line = std::make_shared<SecTreeLine>();
      for (const auto& [column, value] : v.columns) (*line)[column] = value;
      (*line)[kHasChildrenColumn] = std::string(1, '0');  // GCC 12 warns falsely on a literal assignment here
      if ((*line)[kSecCd] != v.sec_cd || find_in(v.sec_cd) >= 0) return false;
      fresh[v.sec_cd] = Block{std::move(line)};
      continue;
    }
    long i = -1;
    if (index.empty()) {
      i = find_in(v.sec_cd);
    } else if (auto it = index.find(v.sec_cd); it != index.end()) {
      i = static_cast<long>(it->second);
    }
    if (i < 0) return false;
    auto line = std::make_shared<SecTreeLine>(*lines[i]);
    for (const auto& [column, value] : v.columns) (*line)[column] = value;
    lines[i] = std::move(line);
  }
  if (fresh.size() != added.size()) return false;

  Patcher patcher(lines, removed);
  patcher.pool() = std::move(fresh);
  for (const std::string& parent : relaid)
    if (!patcher.Relayout(parent)) return false;
  if (!patcher.pool().empty() || patcher.dropped() != removed.size()) return false;
  out = std::move(lines);
  return true;
}

}  // namespace orvane::org
