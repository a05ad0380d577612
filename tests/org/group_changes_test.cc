// The tree changes (201-203 group registration, 212 move, 210 reorder) on a
// real SQLite and PostgreSQL database, checked by the rows they leave.
#include <gtest/gtest.h>

#include <map>
#include <thread>

#include "base/text.h"
#include "org/group_paths.h"
#include "org/group_registration.h"
#include "org/tree_change.h"
#include "support/db_fixture.h"
#include "support/exe_proxy_peer.h"
#include "support/mail_env.h"

namespace orvane::org {
namespace {

using data::Quoted;
using data::Table;
using orvane::testing::Cells;

class GroupChanges : public orvane::testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (IsSkipped()) return;  // no PostgreSQL server: nothing to set up
    session().Set("PUB_USR_ID", "admin");
    Organisation();
  }
  void Organisation() {
    // 0000 本社 ─ 0001 営業部 ─ 0011 東京 ─ 0111 丸の内
    //          └ 0002 総務部
    for (const char* table : {"T_SECTION", "T_SECTION_WORK"}) {
      Section(table, "0000", "9999", "001", "0000", "本社");
      Section(table, "0001", "0000", "001", "0000/0001", "/ 営業部", "B00000001");
      Section(table, "0002", "0000", "002", "0000/0002", "/ 総務部");
      Section(table, "0011", "0001", "001", "0000/0001/0011", "/ 営業部 / 東京");
      Section(table, "0111", "0011", "001", "0000/0001/0011/0111", "/ 営業部 / 東京 / 丸の内");
    }
  }
  void Section(const std::string& table, const std::string& code, const std::string& parent, const std::string& seq,
               const std::string& tree, const std::string& tree_nm, const std::string& busho = "",
               const std::string& upd_kbn = "3") {
    InsertRows(table, {"SEC_CD", "JOI_SEC", "SEC_SEQ", "SEC_TREE", "TREE_NM", "SEC_NM", "BUSHO_CD", "UPD_KBN"},
               {{code, parent, seq, tree, tree_nm, text::Split(tree_nm, "/ ").back(), busho, upd_kbn}});
  }
  // "JOI_SEC|SEC_SEQ|SEC_TREE|TREE_NM|UPD_KBN" of one section, "" when absent.
  std::string Sec(const std::string& code, const char* table = "T_SECTION") {
    return Joined(data::Sql() << "select JOI_SEC,SEC_SEQ,SEC_TREE,TREE_NM,UPD_KBN from " << Table(table)
                              << " where SEC_CD = " << Quoted(code),
                  "|", "");
  }
  std::string All(const char* table = "T_SECTION") {
    return Joined(data::Sql() << "select SEC_CD,JOI_SEC,SEC_SEQ,SEC_TREE,TREE_NM,SEC_NM,BUSHO_CD,UPD_KBN from "
                              << Table(table) << " order by SEC_CD");
  }
};

TEST_P(GroupChanges, AddNumbersCodesAndOrdersAndBuildsBothPaths) {
  struct Case {
    const char* query;
    const char* answer;
    const char* code;
    const char* row;  // JOI_SEC|SEC_SEQ|SEC_TREE|TREE_NM|UPD_KBN
  } cases[] = {
      {"ReqNo=201&Group_cd=0000&Group_nm=開発部", "OK", "0112", "0000|003|0000/0112|/ 開発部|3"},
      {"ReqNo=201&Group_cd=0111&Group_nm=A%2F%20B%20C", "OK", "0113",
       "0111|001|0000/0001/0011/0111/0113|/ 営業部 / 東京 / 丸の内 / A/BC|3"},
      {"ReqNo=201&Group_cd=0002&Group_nm=O%27Brien", "OK", "0114", "0002|001|0000/0002/0114|/ 総務部 / O'Brien|3"},
      {"ReqNo=201&Group_cd=0002&Group_nm=x&BUSHO_CD=B0000001", "ERROR:ALREADYBUSHO", "0115", ""},
      {"ReqNo=201&Group_cd=0002&Group_nm=x&BUSHO_CD=B000000001", "ERROR:ALREADYBUSHO", "0115", ""},
      {"ReqNo=201&Group_cd=0002&Group_nm=x&BUSHO_CD=B00000001", "ERROR:ALREADYBUSHO", "0115", ""},
      {"ReqNo=201&Group_cd=0002&Group_nm=x&BUSHO_CD=B00000002", "OK", "0115", "0002|002|0000/0002/0115|/ 総務部 / x|3"},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Request(c.query), c.answer) << c.query;
    EXPECT_EQ(Sec(c.code), c.row) << c.query;
  }
  EXPECT_EQ(Rows(data::Sql() << "select SEC_NM,BUSHO_CD from " << Table("T_SECTION") << " where SEC_CD = '0113'"),
            Cells({{"A/ B C", ""}}));

  // A parent's deleted children still count, and the codes wrap from 9999
  // (to "0000", free here: the work copy lost its top).
  Section("T_SECTION_WORK", "9999", "0002", "004", "0000/0002/9999", "/ 総務部 / 旧", "", "1");
  Exec(data::Sql() << "delete from " << Table("T_SECTION_WORK") << " where SEC_CD = '0000'");
  EXPECT_EQ(Request("ReqNo=201&DBFlg=1&Group_cd=0002&Group_nm=y"), "OK");
  EXPECT_EQ(Sec("0000", "T_SECTION_WORK"), "0002|005|0000/0002/0000|/ 総務部 / y|3");
}

TEST_P(GroupChanges, DepartmentCodesAndThePersonnelMode) {
  Section("T_SECTION_WORK", "0003", "0000", "003", "0000/0003", "/ 削除済", "B00000003", "1");
  Section("T_SECTION_WORK", "0004", "0000", "004", "0000/0004", "/ 生", "B00000002");
  ExpectAnswers("ReqNo=", {{"201&Group_cd=0000&Group_nm=a&BUSHO_CD=B00000001", "ERROR:ALREADYBUSHO"},
                           {"201&DBFlg=1&Group_cd=0000&Group_nm=a&BUSHO_CD=B00000002", "ERROR:ALREADYBUSHO"},
                           {"201&DBFlg=1&Group_cd=0000&Group_nm=a&BUSHO_CD=B00000003", "OK"},  // a deleted group's
                           {"202&Group_cd=0001&Group_nm=営業部&BUSHO_CD=B00000001", "OK"}});   // 202 passes it empty
  EXPECT_EQ(Rows(data::Sql() << "select BUSHO_CD from " << Table("T_SECTION") << " where SEC_CD = '0001'"),
            Cells({{""}}));

  WriteConfig("JNJI_MODE=2\n");
  Exec(data::Sql() << "update " << Table("T_SECTION") << " set BUSHO_CD = 'KEEP'");
  EXPECT_EQ(Request("ReqNo=201&Group_cd=0000&Group_nm=z&BUSHO_CD=123"), "OK");
  EXPECT_EQ(Request("ReqNo=202&Group_cd=0002&Group_nm=総務"), "OK");
  EXPECT_EQ(Rows(data::Sql() << "select SEC_CD,BUSHO_CD from " << Table("T_SECTION")
                             << " where SEC_CD in ('0002', '0112') order by SEC_CD"),
            Cells({{"0002", "KEEP"}, {"0112", ""}}));
}

TEST_P(GroupChanges, RenameRewritesEveryDescendantsNamePath) {
  EXPECT_EQ(Request("ReqNo=202&Group_cd=0001&Group_nm=営業本部&Disp_NM=営&M_LIST="), "OK");
  EXPECT_EQ(Sec("0001"), "0000|001|0000/0001|/ 営業本部|2");
  EXPECT_EQ(Sec("0011"), "0001|001|0000/0001/0011|/ 営業本部 / 東京|2");
  EXPECT_EQ(Sec("0111"), "0011|001|0000/0001/0011/0111|/ 営業本部 / 東京 / 丸の内|2");
  EXPECT_EQ(Sec("0001", "T_SECTION_WORK"), "0000|001|0000/0001|/ 営業部|3");
  // The top's own path is its name; below it, paths start with "/ ".
  EXPECT_EQ(Request("ReqNo=202&Group_cd=0000&Group_nm=新本社"), "OK");
  EXPECT_EQ(Sec("0000"), "9999|001|0000|新本社|2");
  EXPECT_EQ(Sec("0111"), "0011|001|0000/0001/0011/0111|/ 営業本部 / 東京 / 丸の内|2");
}

TEST_P(GroupChanges, DeleteRemovesALeafWithItsRowsAndLeavesAParentAlone) {
  const std::string before = All();
  EXPECT_EQ(Request("ReqNo=203&Group_cd=0011"), "OK");
  EXPECT_EQ(All(), before);

  const char* opened[] = {"t_bbsopen",  "t_rsvopen",  "t_schopen",   "t_cabopen",
                          "t_linkopen", "t_adbkopen", "T_TOPICOPEN", "WF_KENGEN"};
  for (const char* t : opened)  // OPEN_KBN 2: opened to a user with that id, kept
    InsertRows(t, {"OPEN_ID", "OPEN_KBN"}, {{"0111", "1"}, {"0111", "2"}});
  Insert("t_schopen", {{"KEY_CD", "$0111"}});
  Insert("EVENT_GPINFO", {{"SEC_CD", "0111"}});
  Insert("schedule_info", {{"syokuin_cd", "$0111"}});
  for (const char* t : {"T_SECMEMBER", "T_SECMEMBER_WORK"}) Insert(t, {{"SEC_CD", "0111"}, {"USER_ID", "u1"}});
  EXPECT_EQ(Request("ReqNo=203&DBFlg=1&Group_cd=0111"), "OK");
  EXPECT_EQ(Sec("0111", "T_SECTION_WORK"), "0011|001|0000/0001/0011/0111|/ 営業部 / 東京 / 丸の内|1");
  // The live calendar (schedule_info) is not the work copy's.
  EXPECT_EQ(Count("T_SECMEMBER_WORK") + Count("T_SECMEMBER") + Count("schedule_info") + Count("WF_KENGEN") +
                Count("t_bbsopen") + Count("t_schopen"),
            "011211");
  Insert("t_bbsopen", {{"OPEN_ID", "0111"}, {"OPEN_KBN", "1"}});

  // A failure in the middle leaves everything as it was.
  Exec(data::Sql() << "drop table " << Table("T_TOPICOPEN"));
  std::string answer = Request("ReqNo=203&Group_cd=0111");
  EXPECT_TRUE(answer.starts_with("ERROR:SQLEXECfunDelGroup\r\n[Com_funExecsql]エラー番号 ")) << answer;
  EXPECT_TRUE(answer.ends_with("<BR><BR>SQL : delete from T_TOPICOPEN where OPEN_ID = '0111' And OPEN_KBN = '1'"))
      << answer;
  EXPECT_EQ(Sec("0111"), "0011|001|0000/0001/0011/0111|/ 営業部 / 東京 / 丸の内|3");
  EXPECT_EQ(Count("T_SECMEMBER") + Count("t_bbsopen") + Count("schedule_info"), "121");
}

TEST_P(GroupChanges, LiveDeleteClearsTheCalendarAndTheRights) {
  Insert("T_TOPICOPEN", {{"OPEN_ID", "0002"}, {"OPEN_KBN", "1"}});
  Insert("schedule_info", {{"syokuin_cd", "$0002"}});
  Insert("WF_KENGEN", {{"OPEN_ID", "0002"}, {"OPEN_KBN", "1"}});
  Insert("T_SECMEMBER", {{"SEC_CD", "0002"}, {"USER_ID", "u1"}});
  EXPECT_EQ(Request("ReqNo=203&Group_cd=0002"), "OK");
  EXPECT_EQ(Sec("0002"), "");
  EXPECT_EQ(Count("T_TOPICOPEN") + Count("schedule_info") + Count("WF_KENGEN") + Count("T_SECMEMBER"), "0000");
}

TEST_P(GroupChanges, MoveRewritesTheSubtreeAndRefusesCycles) {
  Section("T_SECTION", "0003", "0000", "005", "0000/0003", "/ 開発部");  // a gap before it
  EXPECT_EQ(Request("ReqNo=212&Group_cd1=0001&Group_cd2=0002"), "OK");
  EXPECT_EQ(Sec("0001"), "0002|001|0000/0002/0001|/ 総務部 / 営業部|2");
  EXPECT_EQ(Sec("0011"), "0001|001|0000/0002/0001/0011|/ 総務部 / 営業部 / 東京|2");
  EXPECT_EQ(Sec("0111"), "0011|001|0000/0002/0001/0011/0111|/ 総務部 / 営業部 / 東京 / 丸の内|2");
  EXPECT_EQ(Sec("0002"), "0000|002|0000/0002|/ 総務部|3");

  EXPECT_EQ(Request("ReqNo=212&Group_cd1=0011&Group_cd2=0000"), "OK");
  EXPECT_EQ(Sec("0011"), "0000|006|0000/0011|/ 東京|2");
  EXPECT_EQ(Sec("0111"), "0011|001|0000/0011/0111|/ 東京 / 丸の内|2");

  const std::string before = All();
  for (const char* q : {"ReqNo=212&Group_cd1=0002&Group_cd2=0001", "ReqNo=212&Group_cd1=0011&Group_cd2=0011",
                        "ReqNo=212&Group_cd1=0000&Group_cd2=0002", "ReqNo=212&Group_cd1=0999&Group_cd2=0002",
                        "ReqNo=212&Group_cd1=0002&Group_cd2=0999"})
    EXPECT_EQ(Request(q), "ERROR:ILLEGALTREE") << q;
  EXPECT_EQ(All(), before);
}

// A subtree larger than one rewriting statement takes: every descendant's
// paths, none left behind at a block's edge, a code that only begins like
// the moved one's untouched, and the history keeps the moved row alone.
TEST_P(GroupChanges, MoveOfALargeSubtreeRewritesEveryPathOnce) {
  Cells children;
  for (int i = 5000; i < 6201; ++i) {
    std::string code = std::to_string(i);
    children.push_back(
        {code, "0111", "001", "0000/0001/0011/0111/" + code, "/ 営業部 / 東京 / 丸の内 / n" + code, "n" + code, "3"});
  }
  children.push_back({"00011", "0000", "009", "0000/00011", "/ 似た", "似た", "3"});
  InsertRows("T_SECTION", {"SEC_CD", "JOI_SEC", "SEC_SEQ", "SEC_TREE", "TREE_NM", "SEC_NM", "UPD_KBN"}, children);
  const std::string images = Count("ORVANE_HISTORY_ROW");

  EXPECT_EQ(Request("ReqNo=212&Group_cd1=0001&Group_cd2=0002"), "OK");
  Cells rows = Rows(data::Sql() << "select SEC_CD,JOI_SEC,SEC_TREE,TREE_NM,UPD_KBN,UPD_USR from " << Table("T_SECTION")
                                << " where JOI_SEC = '0111'");
  ASSERT_EQ(rows.size(), 1201u);
  for (const auto& row : rows)
    ASSERT_EQ(text::Join(row, "|"), row[0] + "|0111|0000/0002/0001/0011/0111/" + row[0] +
                                        "|/ 総務部 / 営業部 / 東京 / 丸の内 / n" + row[0] + "|2|admin");
  EXPECT_EQ(Sec("00011"), "0000|009|0000/00011|/ 似た|3");
  EXPECT_EQ(
      Joined(data::Sql() << "select ROW_TABLE,ROW_ACTION,ROW_KEY from " << Table("ORVANE_HISTORY_ROW")
                         << " where ENTRY_ID = (select max(ENTRY_ID) from " << Table("ORVANE_HISTORY_ROW") << ")"),
      "T_SECTION|update|0001\n");
  EXPECT_EQ(std::stoi(Count("ORVANE_HISTORY_ROW")), std::stoi(images) + 1);
}

// Two administrators hang 0001 under 0002 and 0002 under 0001 at the same
// moment: one move wins, the other finds itself inside its own subtree.
TEST_P(GroupChanges, CrossedMovesAtOnceLeaveATree) {
  for (int round = 0; round < 6; ++round) {
    for (const char* table : {"T_SECTION", "T_SECTION_WORK"}) Exec(data::Sql() << "delete from " << Table(table));
    Organisation();
    std::string a, b;
    std::thread first([&] { a = Request("ReqNo=212&Group_cd1=0001&Group_cd2=0002"); });
    std::thread second([&] { b = Request("ReqNo=212&Group_cd1=0002&Group_cd2=0001"); });
    first.join();
    second.join();
    EXPECT_TRUE((a == "OK" && b == "ERROR:ILLEGALTREE") || (a == "ERROR:ILLEGALTREE" && b == "OK")) << a << " " << b;
    std::map<std::string, std::string> trees;
    Cells rows = Rows(data::Sql() << "select SEC_CD,JOI_SEC,SEC_TREE from " << Table("T_SECTION"));
    for (const auto& row : rows) trees[row[0]] = row[2];
    for (const auto& row : rows) {
      if (row[1] == "9999") continue;
      EXPECT_EQ(row[2], trees[row[1]] + "/" + row[0]) << "round " << round;
    }
  }
}

TEST_P(GroupChanges, ReorderTurnsTheRangeByOnePlace) {
  auto siblings = [&] {
    Exec(data::Sql() << "delete from " << Table("T_SECTION") << " where JOI_SEC = '0002'");
    for (int i = 1; i <= 5; ++i) {
      std::string code = "030" + std::to_string(i);
      Section("T_SECTION", code, "0002", "00" + std::to_string(i), "0000/0002/" + code, "/ 総務部 / " + code);
    }
  };
  auto orders = [&] {
    return Joined(data::Sql() << "select SEC_CD,SEC_SEQ,UPD_KBN from " << Table("T_SECTION")
                              << " where JOI_SEC = '0002' order by SEC_CD",
                  ":", " ");
  };
  siblings();
  EXPECT_EQ(Request("ReqNo=210&Group_cd1=0301&Group_cd2=0303&Group_cd3=0002"), "OK");
  EXPECT_EQ(orders(), "0301:003:2 0302:001:2 0303:002:2 0304:004:3 0305:005:3 ");
  siblings();
  EXPECT_EQ(Request("ReqNo=210&Group_cd1=0305&Group_cd2=0302&Group_cd3=0002"), "OK");
  EXPECT_EQ(orders(), "0301:001:3 0302:003:2 0303:004:2 0304:005:2 0305:002:2 ");
  siblings();
  Exec(data::Sql() << "update " << Table("T_SECTION") << " set SEC_SEQ = '002' where SEC_CD = '0303'");
  EXPECT_EQ(Request("ReqNo=210&Group_cd1=0302&Group_cd2=0303&Group_cd3=0002"), "OK");
  EXPECT_EQ(Request("ReqNo=210&Group_cd1=0302&Group_cd2=0399&Group_cd3=0002"), "ERROR:DBFETCH");
  EXPECT_EQ(orders(), "0301:001:3 0302:002:3 0303:002:3 0304:004:3 0305:005:3 ");
}

// Refused as a foreign key would refuse them, writing nothing live or in
// the work tables: an add under no existing section, and a reorder of
// groups that are not both children of the given parent (one of another
// family would take a sibling's order).
TEST_P(GroupChanges, AMissingParentOrANonSiblingIsRefused) {
  EXPECT_EQ(Request("ReqNo=203&Group_cd=0111"), "OK");  // a parent just deleted
  Exec(data::Sql() << "update " << Table("T_SECTION_WORK") << " set UPD_KBN = '1' where SEC_CD = '0002'");
  const std::string live = All(), work = All("T_SECTION_WORK");
  const std::string parent = "ERROR:SQLEXECRegistGroup\r\nfunInsGroup\r\nno such parent section: ";
  const std::string sibling = "ERROR:SQLEXECChangeGroupDisp\r\nnot a child of ";
  ExpectAnswers("ReqNo=", {{"201&Group_nm=x&Group_cd=0111", parent + "0111"},
                           {"201&Group_nm=x&Group_cd=0999", parent + "0999"},
                           {"201&Group_nm=x&Group_cd=9999", parent + "9999"},  // the top's JOI_SEC is no section
                           {"201&Group_nm=x&Group_cd=", parent},
                           {"201&Group_nm=x&DBFlg=1&Group_cd=0005", parent + "0005"},
                           {"210&Group_cd1=0011&Group_cd2=0002&Group_cd3=0000", sibling + "0000: 0011"},
                           {"210&Group_cd1=0002&Group_cd2=0011&Group_cd3=0000", sibling + "0000: 0011"},
                           {"210&Group_cd1=0001&Group_cd2=0002&Group_cd3=0001", sibling + "0001: 0001"},
                           {"210&Group_cd1=0001&Group_cd2=0002&Group_cd3=", sibling + ": 0001"},
                           // On the work tables a deleted group is no child.
                           {"210&DBFlg=1&Group_cd1=0001&Group_cd2=0002&Group_cd3=0000", sibling + "0000: 0002"}});
  EXPECT_EQ(All(), live);
  EXPECT_EQ(All("T_SECTION_WORK"), work);
  EXPECT_EQ(Request("ReqNo=201&Group_cd=0011&Group_nm=after"), "OK");
  EXPECT_EQ(Sec("0012"), "0011|001|0000/0001/0011/0012|/ 営業部 / 東京 / after|3");
}

// Every live change raises the tree version in its own transaction and
// draws the tree (work-table changes neither); an answer's tree is drawn
// again only when the database's version is newer than the held one's
// (another instance changed the tree).
TEST_P(GroupChanges, TheTreeVersionTellsOtherInstancesToDrawAgain) {
  auto version = [&] { return Rows(data::Sql() << "select VERSION from " << Table("ORVANE_TREE_VERSION"))[0][0]; };
  auto codes = [&] {
    std::shared_ptr<const Array2D> tree;
    EXPECT_TRUE(CurrentSecHierarchical(ConfigFile(ConfigPath()), app(), tree).ok());
    return tree ? text::Join((*tree)[0], " ") : "(none)";
  };
  struct Case {
    const char* request;
    const char* answer;
    const char* version;
  } cases[] = {
      {"ReqNo=201&DBFlg=1&Group_cd=0000&Group_nm=w", "OK", "0"},  // work tables: not the drawn tree
      {"ReqNo=212&Group_cd1=0111&Group_cd2=0002", "OK", "1"},
      {"ReqNo=212&Group_cd1=0002&Group_cd2=0111", "ERROR:ILLEGALTREE", "1"},  // rolled back
      {"ReqNo=202&Group_cd=0002&Group_nm=b", "OK", "2"},
      {"ReqNo=210&Group_cd1=0001&Group_cd2=0002&Group_cd3=0000", "OK", "3"},
      // Refused: the version and the held tree stay as they were.
      {"ReqNo=203&Group_cd=0001", "OK", "3"},  // a group with children: silently refused
      {"ReqNo=201&Group_cd=0002&Group_nm=c&BUSHO_CD=B00000001", "ERROR:ALREADYBUSHO", "3"},
      {"ReqNo=210&Group_cd1=0001&Group_cd2=0111&Group_cd3=0000", "ERROR:SQLEXEC", "3"},
  };
  std::shared_ptr<const Array2D> held;
  for (const Case& c : cases) {
    const bool refused = std::string_view(c.request).starts_with("ReqNo=203") || std::string_view(c.answer) != "OK";
    EXPECT_TRUE(std::string_view(Request(c.request)).starts_with(c.answer)) << c.request;
    EXPECT_EQ(version(), c.version) << c.request;
    EXPECT_EQ(app().SecHierarchical() == nullptr, c.version == std::string("0")) << c.request;
    if (refused && held) {
      EXPECT_EQ(app().SecHierarchical(), held) << c.request;
    }
    held = app().SecHierarchical();
  }
  EXPECT_EQ(app().SecHierarchicalVersion(), 3);
  EXPECT_EQ(codes(), "0000 0002 0111 0001 0011");
  // Another instance's change: the section row and the version together.
  Exec(data::Sql() << "update " << Table("T_SECTION")
                   << " set JOI_SEC = '0000', SEC_SEQ = '003', SEC_TREE = '0000/0111' where SEC_CD = '0111'");
  EXPECT_EQ(codes(), "0000 0002 0111 0001 0011");  // same version: the held tree
  Exec(data::Sql() << "update " << Table("ORVANE_TREE_VERSION") << " set VERSION = '4'");
  EXPECT_EQ(codes(), "0000 0002 0001 0011 0111");
  EXPECT_EQ(app().SecHierarchicalVersion(), 4);
}

// A server's store (it holds the drawn tree) keeps 101's list and answers
// it again while the tree version stays; every live tree change moves the
// version, so the list read after it shows the change.
TEST_P(GroupChanges, TheGroupListIsKeptWhileTheTreeVersionStays) {
  ASSERT_TRUE(LoadSecHierarchical(ConfigFile(ConfigPath()), app()).ok());
  const std::string top = "0000,9999,本社,";
  struct Case {
    const char* request;  // then 101
    std::string list;
  } cases[] = {
      {"", top + "0001,0000,営業部,0002,0000,総務部,0011,0001,東京,0111,0011,丸の内"},
      {"ReqNo=202&Group_cd=0002&Group_nm=人事部", top + "0001,0000,営業部,0002,0000,人事部,0011,0001,東京,0111,0011,丸の内"},
      {"ReqNo=201&Group_cd=0000&Group_nm=開発部",
       top + "0001,0000,営業部,0002,0000,人事部,0112,0000,開発部,0011,0001,東京,0111,0011,丸の内"},
      {"ReqNo=212&Group_cd1=0111&Group_cd2=0002",
       top + "0001,0000,営業部,0002,0000,人事部,0112,0000,開発部,0011,0001,東京,0111,0002,丸の内"},
      {"ReqNo=210&Group_cd1=0112&Group_cd2=0001&Group_cd3=0000",
       top + "0112,0000,開発部,0001,0000,営業部,0002,0000,人事部,0011,0001,東京,0111,0002,丸の内"},
      {"ReqNo=203&Group_cd=0011", top + "0112,0000,開発部,0001,0000,営業部,0002,0000,人事部,0111,0002,丸の内"},
      // The work tables are read every time.
      {"ReqNo=202&DBFlg=1&Group_cd=0002&Group_nm=w",
       top + "0112,0000,開発部,0001,0000,営業部,0002,0000,人事部,0111,0002,丸の内"},
  };
  for (const Case& c : cases) {
    if (*c.request) {
      EXPECT_EQ(Request(c.request), "OK") << c.request;
    }
    EXPECT_EQ(Request("ReqNo=101"), c.list) << c.request;
  }
  EXPECT_EQ(Request("ReqNo=101&DBFlg=1"), top + "0001,0000,営業部,0002,0000,w,0011,0001,東京,0111,0011,丸の内");
  // A row written past the tree changes, without the version: the kept list
  // until the version moves.
  const std::string kept = cases[5].list;
  Section("T_SECTION", "0200", "0000", "009", "0000/0200", "/ 外部");
  EXPECT_EQ(Request("ReqNo=101"), kept);
  Exec(data::Sql() << "update " << Table("ORVANE_TREE_VERSION") << " set VERSION = '99'");
  EXPECT_EQ(Request("ReqNo=101"),
            top + "0112,0000,開発部,0001,0000,営業部,0002,0000,人事部,0200,0000,外部,0111,0002,丸の内");
  // Without the version's row nothing would raise it: read every time.
  Exec(data::Sql() << "delete from " << Table("ORVANE_TREE_VERSION"));
  Exec(data::Sql() << "delete from " << Table("T_SECTION") << " where SEC_CD = '0200'");
  EXPECT_EQ(Request("ReqNo=101"), kept);
}

TEST_P(GroupChanges, ANewListNameGetsTheGroupsCurrentMembers) {
  orvane::testing::ExeProxyPeer peer(dir().File("imail"), "D:\\IMail\\");
  dir().Write("imail/Lists/sales/users.lst", "old@example.jp\r\n");
  WriteConfig("ML_FOLDER=D:\\IMail\\\n" + peer.Ini());
  InsertRows("T_SECMEMBER", {"SEC_CD", "USER_ID", "USER_SEQ", "ST_YMD", "ED_YMD"},
             {{"0001", "u1", "001", "20240101", "99999999"},
              {"0001", "u2", "002", "20240402", "99999999"},  // not yet
              {"0001", "u3", "003", "20230101", "20240401"}});
  EXPECT_EQ(Request("ReqNo=202&Group_cd=0001&Group_nm=営業部&M_LIST=sales"), "OK");
  EXPECT_EQ(orvane::testing::ReadFile(dir().File("imail/Lists/sales/users.lst")),
            "old@example.jp\r\nu1@example.jp\r\nu3@example.jp\r\n");
  // The same list again changes nothing on the mail server.
  peer.Transcripts();
  EXPECT_EQ(Request("ReqNo=202&Group_cd=0001&Group_nm=営業部&M_LIST=sales"), "OK");
  EXPECT_EQ(peer.Transcripts(), std::vector<std::string>{});
}

ORVANE_DB_TEST_SUITE(GroupChanges);

}  // namespace
}  // namespace orvane::org
