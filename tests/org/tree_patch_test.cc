// The drawn tree a tree change patches equals the tree drawn in full from
// the committed table, after every change of a long random sequence of
// adds, renames, deletes, reorders and moves (fixed seed), on both
// databases; and it is patched (lines shared with the tree before), not
// drawn again, whenever the held tree is the one the change started from.
#include <gtest/gtest.h>

#include <functional>
#include <random>

#include "base/text.h"
#include "org/group_paths.h"
#include "org/sec_tree.h"
#include "org/tree_change.h"
#include "support/db_fixture.h"

namespace orvane::org {
namespace {

using data::Table;
using orvane::testing::Cells;

class TreePatchTest : public orvane::testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (IsSkipped()) return;  // no PostgreSQL server: nothing to set up
    session().Set("PUB_USR_ID", "admin");
    Section("0000", "9999", "001", "0000", "本社");
    Section("0001", "0000", "001", "0000/0001", "部", "/ 部");
  }
  void Section(const char* code, const char* parent, const char* seq, const char* tree, const char* name,
               const char* tree_nm = "") {
    InsertRows("T_SECTION", {"SEC_CD", "JOI_SEC", "SEC_SEQ", "SEC_TREE", "TREE_NM", "SEC_NM"},
               {{code, parent, seq, tree, *tree_nm ? tree_nm : name, name}});
  }
  // The whole table drawn afresh.
  Array2D FullDrawing() {
    data::Connection conn;
    EXPECT_TRUE(data::Com_funDbOpen(Dsn(), "", "", conn).ok());
    Array2D hier;
    EXPECT_TRUE(Com_funGet_sec_info(conn, "T_SECTION", hier).ok());
    return hier;
  }
  // How many lines the held tree shares with `before`.
  size_t Shared(const std::shared_ptr<const SecTreeLines>& before) {
    long long version = 0;
    auto now = app().SecTreeLinesHeld(version);
    size_t shared = 0;
    for (size_t i = 0; now && before && i < now->size(); ++i)
      for (size_t j = i < 3 ? 0 : i - 3; j < before->size() && j <= i + 3; ++j)
        if ((*now)[i] == (*before)[j]) ++shared;
    return shared;
  }
};

TEST_P(TreePatchTest, PatchedTreeEqualsAFullDrawingAfterRandomChanges) {
  std::mt19937 random(23);
  auto pick = [&](const std::vector<std::string>& from) { return from[random() % from.size()]; };
  const char* names[] = {"営業部", "東京", "A/ B", "Sales", "総務", "x'y", "開発 二課"};
  std::shared_ptr<const Array2D> tree;
  ASSERT_TRUE(CurrentSecHierarchical(ConfigFile(ConfigPath()), app(), tree).ok());

  int patched = 0, changed = 0;
  std::map<std::string, int> answers;
  for (int step = 0; step < 120; ++step) {
    Cells rows = Rows(data::Sql() << "select SEC_CD,JOI_SEC from " << Table("T_SECTION") << " order by SEC_CD");
    std::vector<std::string> all, below_top;
    std::map<std::string, std::vector<std::string>> children;
    for (const auto& row : rows) {
      all.push_back(row[0]);
      if (row[0] != "0000") below_top.push_back(row[0]);
      children[row[1]].push_back(row[0]);
    }
    std::string query;
    // Adds come more often early on, so that the tree grows deep and wide.
    const int kind = step < 25 ? 0 : static_cast<int>(random() % 6);
    if (kind <= 1 || below_top.empty()) {
      query = "ReqNo=201&Group_cd=" + pick(all) + "&Group_nm=" + names[random() % 7];
    } else if (kind == 2) {
      query = "ReqNo=202&Group_cd=" + pick(all) + "&Group_nm=" + names[random() % 7] + std::to_string(step);
    } else if (kind == 3) {
      query = "ReqNo=203&Group_cd=" + pick(below_top);
    } else if (kind == 4) {
      std::vector<std::string> parents;
      for (const auto& [parent, codes] : children)
        if (codes.size() >= 2) parents.push_back(parent);
      if (parents.empty()) continue;
      std::string parent = pick(parents);
      query = "ReqNo=210&Group_cd1=" + pick(children[parent]) + "&Group_cd2=" + pick(children[parent]) +
              "&Group_cd3=" + parent;
    } else {
      query = "ReqNo=212&Group_cd1=" + pick(below_top) + "&Group_cd2=" + pick(all);
    }
    long long version_before = 0;
    auto before = app().SecTreeLinesHeld(version_before);
    std::string answer = Request(query);
    ++answers[query.substr(0, 9) + " " + answer.substr(0, 17)];
    long long version_after = 0;
    app().SecTreeLinesHeld(version_after);
    if (version_after != version_before) {
      ++changed;
      if (Shared(before) > 0) ++patched;
    }
    ASSERT_NE(app().SecHierarchical(), nullptr) << query;
    ASSERT_EQ(*app().SecHierarchical(), FullDrawing()) << "step " << step << ": " << query << " " << answer;
  }
  // Every change patched the tree it started from; refusals changed nothing.
  EXPECT_GT(changed, 80);
  EXPECT_EQ(patched, changed);
  for (const auto& [what, count] : answers)
    EXPECT_TRUE(what.find(" OK") != std::string::npos || what.find("ERROR:ILLEGALTREE") != std::string::npos ||
                what.find("ERROR:SQLEXEC") != std::string::npos)
        << what << " " << count;
}

// Where the held tree cannot tell what a full drawing gives, the change
// draws the tree in full: a section whose parent is missing (drawn as an
// empty line), siblings with one SEC_SEQ (a full drawing may put them
// either way), a version another instance made.
TEST_P(TreePatchTest, DrawsInFullWhereAPatchCannotTell) {
  // Another instance's change: the rows and the version together.
  auto other_instance = [&] {
    std::string version = Rows(data::Sql() << "select VERSION from " << Table("ORVANE_TREE_VERSION"))[0][0];
    Exec(data::Sql() << "update " << Table("ORVANE_TREE_VERSION")
                     << " set VERSION = " << data::Quoted(std::to_string(std::stol(version) + 1)));
  };
  Section("0002", "0000", "002", "0000/0002", "0002");
  struct Case {
    std::function<void()> arrange;
    bool held_is_current;  // the tree drawn anew since the other instance's change
    const char* request;
    bool patched;
  } cases[] = {
      {[&] { Section("0009", "0404", "001", "0000/0404/0009", "0009"); }, true, "ReqNo=202&Group_cd=0002&Group_nm=b",
       false},
      {[&] { Exec(data::Sql() << "delete from " << Table("T_SECTION") << " where SEC_CD = '0009'"); }, true,
       "ReqNo=202&Group_cd=0002&Group_nm=c", true},
      {[&] { Section("0003", "0000", "002", "0000/0003", "0003"); }, true, "ReqNo=201&Group_cd=0000&Group_nm=d", false},
      {[] {}, false, "ReqNo=202&Group_cd=0001&Group_nm=e", false},
  };
  for (const Case& c : cases) {
    c.arrange();
    other_instance();
    std::shared_ptr<const Array2D> tree;
    if (c.held_is_current) {
      ASSERT_TRUE(CurrentSecHierarchical(ConfigFile(ConfigPath()), app(), tree).ok());
    }
    long long version = 0;
    auto before = app().SecTreeLinesHeld(version);
    ASSERT_EQ(Request(c.request), "OK");
    EXPECT_EQ(Shared(before) > 0, c.patched) << c.request;
    EXPECT_EQ(*app().SecHierarchical(), FullDrawing()) << c.request;
  }
}

ORVANE_DB_TEST_SUITE(TreePatchTest);

}  // namespace
}  // namespace orvane::org
