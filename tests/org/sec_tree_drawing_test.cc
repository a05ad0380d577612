// The tree drawing over arrays a caller hands over, with a parent list of its
// own. The drawing read from the table (glyphs, flags, rows not drawn, the
// error trail) is in group_queries_test.cc.
#include <gtest/gtest.h>

#include "org/sec_tree.h"

namespace orvane::org {
namespace {

// AB at the top and c1 below it, with a JOI_SEC "ab" that differs in case.
const Array2D kSections = {{"AB", "c1"},     {"name AB", "name c1"}, {"", "c"},  {"9999", "ab"},
                           {"001", "002"},   {"AB", "AB/c1"},        {"3", "1"}, {"20240307", "20240308"},
                           {"090503", "09"}, {"admin", "kato"}};

// Each drawn row reads "code has-children prefix"; a row not drawn is "".
std::vector<std::string> DrawWithParents(const std::vector<std::string>& parents, Array2D& hier) {
  hier.assign(kSectionColumns + 2, std::vector<std::string>(2));
  std::vector<std::string> prefix, drawn;
  int row = 0;
  EXPECT_EQ(Com_funGet_sec_hierarchical(kSections, parents, "9999", prefix, hier, row), "");
  for (size_t r = 0; r < 2; ++r)
    drawn.push_back(hier[0][r].empty() ? ""
                                       : hier[0][r] + " " + hier[kHasChildrenColumn][r] + " " + hier[kPrefixColumn][r]);
  return drawn;
}

TEST(SecTreeDrawing, ParentsMatchWithoutRegardToCaseButHavingChildrenIsExact) {
  Array2D hier;
  EXPECT_EQ(DrawWithParents({"AB"}, hier), (std::vector<std::string>{"AB 1 └", "c1 0 　\x1C└"}));
  for (size_t c = 0; c < kSectionColumns; ++c) EXPECT_EQ(hier[c][1], kSections[c][1]) << c;
  // The parent list as the database gives it names "ab": AB has no children.
  EXPECT_EQ(DrawWithParents({"ab"}, hier), (std::vector<std::string>{"AB 0 └", ""}));
}

}  // namespace
}  // namespace orvane::org
