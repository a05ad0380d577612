#include "org/sec_tree.h"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "base/text.h"

namespace orvane::org {
namespace {

constexpr std::string_view kBranch = "├";
constexpr std::string_view kLastBranch = "└";
constexpr std::string_view kVertical = "｜";
constexpr std::string_view kBlank = "　";  // U+3000
constexpr std::string_view kDrawFailed = "グループ情報の取得に失敗しました。";
constexpr size_t kJoiSecColumn = 3;
constexpr size_t kSecTreeColumn = 5;

// The rows of one parent: adjacent in the section array because of its
// order by joi_sec, so a first and a last index describe them.
struct Level {
  size_t next;
  size_t last;
};

// Each level of the drawing that a failure passes on its way out puts the
// message and the routine's name in front: the trail reads as if every level
// were a call of its own.
std::string Unwind(size_t levels, std::string inner) {
  for (size_t i = 1; i < levels; ++i)
    inner = std::string(kDrawFailed) + "Com_funGet_sec_hierarchical" + std::string(text::kCrLf) + inner;
  return inner;
}

std::string JoinPrefix(const std::vector<std::string>& prefix, size_t depth) {
  std::string out;
  for (size_t i = 0; i <= depth; ++i) {
    if (i > 0) out += kLevelSeparator;
    out += prefix[i];
  }
  return out;
}

constexpr char kInfoRoutine[] = "Com_funGet_sec_info";

Status ReadArray(data::Connection& conn, const data::Sql& sql, Array2D& out) {
  data::Recordset rs;
  if (Status s = data::Com_funSelect(conn, sql, rs); !s.ok()) return s;
  if (Status s = data::Com_funRecodsetToArray(rs, out); !s.ok()) return s;
  return data::Com_funRecordsetClose(rs);
}

// Puts the section values of the drawn rows in place, column by column: the
// array is [column][row], so one column at a time stays in the cache where a
// row at a time in tree order would not. With `owned` (the caller's own
// section array) a row's values are moved the first time it is drawn.
void PlaceValues(const Array2D& sections, Array2D* owned, const std::vector<size_t>& drawn, size_t first_row,
                 Array2D& hier) {
  std::vector<long> first_at(owned ? RowCount(sections) : 0, -1);
  if (owned)
    for (size_t r = 0; r < drawn.size(); ++r)
      if (first_at[drawn[r]] < 0) first_at[drawn[r]] = static_cast<long>(r);
  for (size_t c = 0; c < kSectionColumns; ++c) {
    for (size_t r = 0; r < drawn.size(); ++r) {
      const size_t i = drawn[r];
      if (!owned) {
        hier[c][first_row + r] = sections[c][i];
      } else if (first_at[i] == static_cast<long>(r)) {
        hier[c][first_row + r] = std::move((*owned)[c][i]);
      } else {
        hier[c][first_row + r] = hier[c][first_row + first_at[i]];  // drawn again
      }
    }
  }
}

// What a drawing reads: the section array and the codes that have
// children; with `owned` (the caller's own section array) the values are
// moved instead of copied.
struct Source {
  const Array2D& sections;
  Array2D* owned;
  const std::vector<std::string>& parents;
};

std::string Draw(const Source& source, const std::string& joi_sec, std::vector<std::string>& prefix, Array2D& hier,
                 int& row) {
  const Array2D& sections = source.sections;
  const std::vector<std::string>& parents = source.parents;
  const size_t count = RowCount(sections);
  if (count == 0) return "";
  const std::string kName = "Com_funGet_sec_hierarchical" + std::string(text::kCrLf);
  if (ColumnCount(sections) < kSectionColumns)
    return kName + "the section array has " + std::to_string(ColumnCount(sections)) + " columns, not 10";
  if (ColumnCount(hier) <= kPrefixColumn)
    return kName + "the hierarchical array has " + std::to_string(ColumnCount(hier)) + " columns, not 12";

  // Scanning the whole array for each parent would cost the square of the
  // number of sections; indexing the rows by parent once keeps it linear.
  // Parents match without regard to case; the has-children test is exact.
  std::unordered_map<std::string, Level> levels;
  levels.reserve(count);
  for (size_t i = 0; i < count; ++i) {
    auto [it, added] = levels.try_emplace(text::ToUpperAscii(sections[kJoiSecColumn][i]), Level{i, i});
    if (!added) it->second.last = i;
  }
  const std::unordered_set<std::string> with_children(parents.begin(), parents.end());

  // The levels being drawn, outermost first: a stack of our own instead of
  // recursion, so a deep tree cannot exhaust the thread's stack.
  std::vector<Level> open;
  auto enter = [&](const std::string& parent) {
    if (auto it = levels.find(text::ToUpperAscii(parent)); it != levels.end()) open.push_back(it->second);
  };
  enter(joi_sec);
  const size_t first_row = static_cast<size_t>(std::max(row, 0));
  const size_t capacity = RowCount(hier);
  std::vector<size_t> drawn;  // section row of each drawn row, in tree order
  drawn.reserve(count);
  std::string failure;
  while (!open.empty()) {
    Level& level = open.back();
    if (level.next > level.last) {
      open.pop_back();
      continue;
    }
    const size_t i = level.next++;
    const bool last = i == level.last;
    const std::string& code = sections[0][i];
    if (row < 0 || static_cast<size_t>(row) >= capacity) {
      // Only a section reached twice (parents that differ in case only) can
      // draw more rows than there are sections.
      failure = Unwind(open.size(), kName + "section " + code + " is reached a second time at row " +
                                        std::to_string(row) + " of " + std::to_string(capacity));
      break;
    }
    const bool has_children = with_children.count(code) > 0;
    const std::string& tree = sections[kSecTreeColumn][i];
    const size_t depth = static_cast<size_t>(std::count(tree.begin(), tree.end(), '/'));
    if (prefix.size() <= depth) prefix.resize(depth + 1);
    prefix[depth] = last ? kLastBranch : kBranch;

    drawn.push_back(i);
    hier[kHasChildrenColumn][row] = has_children ? "1" : "0";
    hier[kPrefixColumn][row] = JoinPrefix(prefix, depth);
    ++row;

    if (has_children) {
      prefix[depth] = last ? kBlank : kVertical;
      enter(code);  // invalidates `level`; it is not used again
    }
  }
  PlaceValues(sections, source.owned, drawn, first_row, hier);
  return failure;
}

}  // namespace

data::Sql SectionArraySql(const std::string& sec_mst) {
  data::Sql sql;
  sql << "SELECT sec_cd,sec_nm,dsp_nm,joi_sec,sec_seq,sec_tree,upd_kbn,upd_ymd,upd_hms,upd_usr FROM "
      << data::Table(sec_mst) << " ORDER BY joi_sec,sec_seq";
  return sql;
}

data::Sql ParentListSql(const std::string& sec_mst) {
  data::Sql sql;
  sql << "SELECT distinct joi_sec FROM " << data::Table(sec_mst) << " WHERE joi_sec<>'9999' ORDER BY joi_sec";
  return sql;
}

std::string Com_funGet_sec_hierarchical(const Array2D& sections, const std::vector<std::string>& parents,
                                        const std::string& joi_sec, std::vector<std::string>& prefix, Array2D& hier,
                                        int& row) {
  return Draw({sections, nullptr, parents}, joi_sec, prefix, hier, row);
}

Status Com_funGet_sec_info(data::Connection& conn, const std::string& sec_mst, Array2D& hier) {
  Array2D sections;
  // This routine puts its name behind the inner text, not in front.
  if (Status s = ReadArray(conn, SectionArraySql(sec_mst), sections); !s.ok())
    return std::move(s).Suffixed(kInfoRoutine);
  Array2D parent_array;
  if (Status s = ReadArray(conn, ParentListSql(sec_mst), parent_array); !s.ok())
    return std::move(s).Suffixed(kInfoRoutine);
  std::vector<std::string> parents;
  if (!parent_array.empty()) parents = parent_array[0];

  const size_t columns = std::max(ColumnCount(sections), kSectionColumns) + 2;
  hier.assign(columns, std::vector<std::string>(RowCount(sections)));
  int row = 0;
  std::vector<std::string> prefix;
  std::string inner = Draw({sections, &sections, parents}, "9999", prefix, hier, row);
  if (!inner.empty()) return Status::DbFailure(std::move(inner)).Suffixed(kInfoRoutine);
  return Status::Ok();
}

std::string DrawnTreeText(const Array2D& tree) {
  std::string text;
  for (size_t row = 0; row < RowCount(tree); ++row) {
    for (size_t column = 0; column < ColumnCount(tree); ++column) {
      if (column > 0) text += '\t';
      text += tree[column][row];
    }
    text += text::kCrLf;
  }
  return text;
}

}  // namespace orvane::org
