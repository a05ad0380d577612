// The tree drawing over arrays, as the registration driver hands them over:
// glyphs, has-children flags, rows that are not drawn, and the trail of a
// failing level.
#include <gtest/gtest.h>

#include <random>

#include "dispatch/text.h"
#include "org/sec_tree.h"

namespace orvane::org {
namespace {

struct Row {
  const char* code;
  const char* parent;
  const char* seq;
  const char* tree;
  const char* upd_kbn = "3";
};

// The section array as the database returns it: ordered by joi_sec, sec_seq.
Array2D SectionArray(std::vector<Row> rows) {
  std::stable_sort(rows.begin(), rows.end(), [](const Row& a, const Row& b) {
    return std::string(a.parent) + "\n" + a.seq < std::string(b.parent) + "\n" + b.seq;
  });
  Array2D a(kSectionColumns);
  for (const Row& r : rows) {
    const std::string values[] = {
        r.code, std::string("name ") + r.code, "", r.parent, r.seq, r.tree, r.upd_kbn, "20240307", "090503", "admin"};
    for (size_t c = 0; c < kSectionColumns; ++c) a[c].push_back(values[c]);
  }
  return a;
}

std::vector<std::string> Parents(const Array2D& sections) {
  std::vector<std::string> p;
  for (const std::string& joi : sections[3])
    if (joi != "9999" && std::find(p.begin(), p.end(), joi) == p.end()) p.push_back(joi);
  std::sort(p.begin(), p.end());
  return p;
}

std::string Draw(const Array2D& sections, Array2D& hier) {
  hier.assign(kSectionColumns + 2, std::vector<std::string>(RowCount(sections)));
  std::vector<std::string> prefix;
  int row = 0;
  return Com_funGet_sec_hierarchical(sections, Parents(sections), "9999", prefix, hier, row);
}

std::string Prefix(std::initializer_list<const char*> glyphs) {
  std::vector<std::string> parts(glyphs.begin(), glyphs.end());
  return text::Join(parts, std::string(1, kLevelSeparator));
}

TEST(SecTreeDrawing, ThreeLevelsWithFirstMiddleAndLastSiblings) {
  Array2D sections = SectionArray({
      {"0000", "9999", "001", "0000"},
      {"0001", "0000", "001", "0000/0001"},
      {"0002", "0000", "002", "0000/0002", "1"},  // deleted: still drawn
      {"0003", "0000", "003", "0000/0003"},
      {"0004", "0001", "001", "0000/0001/0004"},
      {"0005", "0001", "002", "0000/0001/0005"},
      {"0006", "0003", "001", "0000/0003/0006"},
      {"0009", "0099", "001", "0099/0009"},  // parent missing: not drawn
  });
  Array2D hier;
  ASSERT_EQ(Draw(sections, hier), "");
  struct Expected {
    const char* code;
    const char* has_children;
    std::string prefix;
  } expected[] = {
      {"0000", "1", Prefix({"└"})},
      {"0001", "1", Prefix({"　", "├"})},
      {"0004", "0", Prefix({"　", "｜", "├"})},
      {"0005", "0", Prefix({"　", "｜", "└"})},
      {"0002", "0", Prefix({"　", "├"})},
      {"0003", "1", Prefix({"　", "└"})},
      {"0006", "0", Prefix({"　", "　", "└"})},
      {"", "", ""},
  };
  ASSERT_EQ(RowCount(hier), std::size(expected));
  for (size_t r = 0; r < std::size(expected); ++r) {
    EXPECT_EQ(hier[0][r], expected[r].code) << r;
    EXPECT_EQ(hier[kHasChildrenColumn][r], expected[r].has_children) << r;
    EXPECT_EQ(hier[kPrefixColumn][r], expected[r].prefix) << r;
  }
  EXPECT_EQ(hier[6][4], "1");  // the deleted row keeps its columns
  EXPECT_EQ(hier[1][4], "name 0002");
  EXPECT_EQ(hier[9][0], "admin");
}

TEST(SecTreeDrawing, ParentsMatchWithoutRegardToCase) {
  Array2D sections = SectionArray({
      {"AB", "9999", "001", "AB"},
      {"c1", "ab", "001", "AB/c1"},
  });
  Array2D hier;
  std::vector<std::string> prefix;
  int row = 0;
  hier.assign(12, std::vector<std::string>(2));
  ASSERT_EQ(Com_funGet_sec_hierarchical(sections, {"AB"}, "9999", prefix, hier, row), "");
  EXPECT_EQ(row, 2);
  EXPECT_EQ(hier[0][1], "c1");
  EXPECT_EQ(hier[kPrefixColumn][1], Prefix({"　", "└"}));
}

TEST(SecTreeDrawing, ASectionReachedTwiceFailsWithTheTrailOfEveryLevel) {
  // "a1" hangs under "A1" and parents match without regard to case, so
  // drawing "a1" reaches it again: the recursion would never end.
  Array2D sections = SectionArray({
      {"A1", "9999", "001", "A1"},
      {"a1", "A1", "001", "A1/a1"},
      {"z", "a1", "001", "A1/a1/z"},
  });
  Array2D hier;
  const std::string level = "グループ情報の取得に失敗しました。Com_funGet_sec_hierarchical\r\n";
  EXPECT_EQ(Draw(sections, hier),
            level + level + level + "Com_funGet_sec_hierarchical\r\nsection a1 is reached a second time at row 3 of 3");
}

// The recursion as first described: one whole scan of the array per level.
void Recurse(const Array2D& s, const std::vector<std::string>& parents, const std::string& parent,
             std::vector<std::string>& prefix, Array2D& hier, int& row) {
  long first = -1, last = -1;
  for (size_t i = 0; i < RowCount(s); ++i)
    if (text::EqualsIgnoreCase(s[3][i], parent)) {
      if (first < 0) first = static_cast<long>(i);
      last = static_cast<long>(i);
    }
  for (long i = first; first >= 0 && i <= last; ++i) {
    bool has = std::find(parents.begin(), parents.end(), s[0][i]) != parents.end();
    size_t depth = text::Split(s[5][i], "/").size() - 1;
    if (prefix.size() <= depth) prefix.resize(depth + 1);
    prefix[depth] = i == last ? "└" : "├";
    for (size_t c = 0; c < 10; ++c) hier[c][row] = s[c][i];
    hier[10][row] = has ? "1" : "0";
    hier[11][row] = text::Join(std::vector<std::string>(prefix.begin(), prefix.begin() + depth + 1), "\x1C");
    ++row;
    if (has) {
      prefix[depth] = i == last ? "　" : "｜";
      Recurse(s, parents, s[0][i], prefix, hier, row);
    }
  }
}

TEST(SecTreeDrawing, SameArrayAsTheLevelByLevelRecursionOnRandomTrees) {
  std::mt19937 random(7);
  for (int trial = 0; trial < 40; ++trial) {
    std::vector<std::string> codes = {"0000"}, trees = {"0000"};
    std::vector<std::string> keep;  // storage for the Row pointers
    std::vector<Row> rows;
    int n = 1 + static_cast<int>(random() % 60);
    keep.reserve(4 * n + 8);
    auto hold = [&keep](std::string s) { return keep.emplace_back(std::move(s)).c_str(); };
    rows.push_back({"0000", "9999", "001", "0000"});
    for (int i = 1; i < n; ++i) {
      size_t parent = random() % codes.size();
      char code[16];
      snprintf(code, sizeof code, "%04d", i);
      codes.push_back(code);
      trees.push_back(trees[parent] + "/" + code);
      // Sequence numbers may tie; a few rows point at a missing parent.
      std::string joi = random() % 10 == 0 ? "0999" : codes[parent];
      rows.push_back({hold(code), hold(joi), hold(std::to_string(random() % 5)), hold(trees.back())});
    }
    Array2D sections = SectionArray(rows);
    Array2D fast, slow(12, std::vector<std::string>(RowCount(sections)));
    ASSERT_EQ(Draw(sections, fast), "");
    std::vector<std::string> prefix;
    int row = 0;
    Recurse(sections, Parents(sections), "9999", prefix, slow, row);
    ASSERT_EQ(fast, slow) << "trial " << trial;
  }
}

}  // namespace
}  // namespace orvane::org
