// The group queries (101, 103, 105) and the drawn tree read from a real
// SQLite and PostgreSQL database; the drawing over a caller's arrays.
#include <gtest/gtest.h>

#include "data/db.h"
#include "org/sec_tree.h"
#include "support/db_fixture.h"
#include "support/status_code.h"

namespace orvane::org {

using orvane::testing::Code;
namespace {

using orvane::testing::DbTest;

class GroupQueries : public DbTest {
 protected:
  // Into the live table and its work twin alike.
  void AddSection(const char* code, const char* parent, const char* seq, const char* tree, const char* name,
                  const char* upd_kbn = "3") {
    for (const char* table : {"T_SECTION", "T_SECTION_WORK"})
      InsertRows(table,
                 {"SEC_CD", "JOI_SEC", "SEC_SEQ", "SEC_TREE", "SEC_NM", "DSP_NM", "BUSHO_CD", "IMAIL_LIST", "UPD_KBN",
                  "UPD_YMD", "UPD_HMS"},
                 {{code, parent, seq, tree, name, std::string("d") + code, std::string("B") + code, "list", upd_kbn,
                   "20240301", "091500"}});
  }
  // 0000 at the top; 0001, 0002 (a comma in its name), 0003 (deleted) below
  // it; 0011 below 0001.
  void AddOrganisation() {
    AddSection("0000", "9999", "001", "0000", "本社");
    AddSection("0003", "0000", "003", "0000/0003", "開発部", "1");
    AddSection("0011", "0001", "001", "0000/0001/0011", "東京営業所");
    AddSection("0002", "0000", "002", "0000/0002", "総務,人事部");
    AddSection("0001", "0000", "001", "0000/0001", "営業部");
  }
  void Drop(const char* table) { Exec(data::Sql() << "delete from " << data::Table(table)); }
};

TEST_P(GroupQueries, AllGroupsFirstTopThenParentsBeforeChildren) {
  AddOrganisation();
  const std::string tail = "0001,0000,営業部,0002,0000,総務,人事部,";
  const std::string live = "0000,9999,本社," + tail + "0003,0000,開発部,0011,0001,東京営業所";
  // DBFlg=1 (in any letter case) names the work tables; any other value the live ones.
  ExpectAnswers("ReqNo=101", {{"", live},
                              {"&DBFlg=0", live},
                              {"&dbflg=2", live},
                              {"&DBFlg=", live},
                              {"&dbflg=1", "0000,9999,本社," + tail + "0011,0001,東京営業所"}});
  ExpectAnswers("ReqNo=", {{"0101", "ERROR:NOREQUESTCODE"}, {"", "ERROR:NOREQUESTCODE"}});  // the whole text names it

  AddSection("0100", "9999", "002", "0100", "第二本社");
  AddSection("0101", "0100", "001", "0100/0101", "支社");
  EXPECT_EQ(Request("ReqNo=101&DBFlg=1"), "0000,9999,本社," + tail + "0101,0100,支社,0011,0001,東京営業所");

  Exec(data::Sql() << "delete from " << data::Table("T_SECTION") << " where JOI_SEC = '9999'");
  EXPECT_EQ(Request("ReqNo=101"), ",,," + tail + "0003,0000,開発部,0101,0100,支社,0011,0001,東京営業所");
  Drop("T_SECTION");
  EXPECT_EQ(Request("ReqNo=101"), ",,");
}

TEST_P(GroupQueries, ChildrenOfOneGroupAndTheNameSortTheDatabaseRefuses) {
  AddOrganisation();
  const std::string all = "0001,0000,営業部,0002,0000,総務,人事部,0003,0000,開発部";
  ExpectAnswers("ReqNo=103&Group_cd=", {{"0000", all},
                                        {"0000&S_Col=id&S_Type=1", all},
                                        {"0000&DBFlg=1", "0001,0000,営業部,0002,0000,総務,人事部"},
                                        {"0001", "0011,0001,東京営業所"},
                                        {"0011", ""},
                                        {"0000&S_Col=name&S_Type=1", "ERROR:DBSELECT"},
                                        {"0000&S_Col=NAME&S_Type=0", "ERROR:DBSELECT"}});
}

TEST_P(GroupQueries, PropertiesOfOneGroup) {
  AddOrganisation();
  ExpectAnswers("ReqNo=105&Group_cd=",
                {{"0002", "0002,総務,人事部,d0002,B0002,002,list,20240301,091500"},
                 {"0003&DBFlg=1", "0003,開発部,d0003,B0003,003,list,20240301,091500"},  // deleted
                 {"9999", ",,,,,,,"},
                 {"0000'", ",,,,,,,"}});  // the quote is a value, not SQL
}

TEST_P(GroupQueries, TheDrawnTreeFromTheTable) {
  AddOrganisation();
  AddSection("0009", "0099", "001", "0099/0009", "親なし");
  data::Connection& conn = Db();
  std::string error;
  Array2D hier;
  ASSERT_EQ(Code(Com_funGet_sec_info(conn, "T_SECTION", hier), error), 0) << error;
  ASSERT_EQ(ColumnCount(hier), 12u);
  const std::vector<std::string> codes = {"0000", "0001", "0011", "0002", "0003", ""};
  const std::vector<std::string> flags = {"1", "1", "0", "0", "0", ""};
  const std::vector<std::string> prefixes = {"└", "　\x1C├", "　\x1C｜\x1C└", "　\x1C├", "　\x1C└", ""};
  EXPECT_EQ(hier[0], codes);
  EXPECT_EQ(hier[kHasChildrenColumn], flags);
  EXPECT_EQ(hier[kPrefixColumn], prefixes);
  EXPECT_EQ(hier[1][3], "総務,人事部");
  EXPECT_EQ(hier[6][4], "1");

  // A section reached twice is drawn twice until the array is full.
  Drop("T_SECTION_WORK");
  Insert("T_SECTION_WORK", {{"SEC_CD", "A1"}, {"JOI_SEC", "9999"}, {"SEC_SEQ", "001"}, {"SEC_TREE", "A1"}});
  Insert("T_SECTION_WORK", {{"SEC_CD", "a1"}, {"JOI_SEC", "A1"}, {"SEC_SEQ", "001"}, {"SEC_TREE", "A1/a1"}});
  Insert("T_SECTION_WORK", {{"SEC_CD", "z"}, {"JOI_SEC", "a1"}, {"SEC_SEQ", "001"}, {"SEC_TREE", "A1/a1/z"}});
  EXPECT_EQ(Code(Com_funGet_sec_info(conn, "T_SECTION_WORK", hier), error), 1);
  const std::string level = "グループ情報の取得に失敗しました。Com_funGet_sec_hierarchical\r\n";
  EXPECT_EQ(error, level + level + level +
                       "Com_funGet_sec_hierarchical\r\nsection a1 is reached a second time at row 3 of 3"
                       "Com_funGet_sec_info\r\n");
  EXPECT_EQ(hier[0], (std::vector<std::string>{"A1", "a1", "a1"}));
  EXPECT_EQ(hier[5], (std::vector<std::string>{"A1", "A1/a1", "A1/a1"}));

  Exec(data::Sql() << "drop table " << data::Table("T_SECTION_WORK"));
  EXPECT_EQ(Code(Com_funGet_sec_info(conn, "T_SECTION_WORK", hier), error), 1);
  EXPECT_TRUE(error.starts_with("[Com_funSelect]エラー番号 ")) << error;
  EXPECT_TRUE(error.ends_with(
      "<BR><BR>SQL : SELECT sec_cd,sec_nm,dsp_nm,joi_sec,sec_seq,sec_tree,upd_kbn,upd_ymd,upd_hms,upd_usr FROM "
      "T_SECTION_WORK ORDER BY joi_sec,sec_seqCom_funGet_sec_info\r\n"))
      << error;
}

ORVANE_DB_TEST_SUITE(GroupQueries);

// The drawing over arrays a caller hands over, with a parent list of its own.
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
