// Member lists (104), a user's sections (108) and menu rights (110) on a
// real SQLite and PostgreSQL database.
#include "members/member_queries.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/text.h"
#include "data/schema.h"
#include "support/db_fixture.h"

namespace orvane::members {

namespace {

using orvane::testing::DbTest;

class MemberQueries : public DbTest {
 protected:
  // Today is 2024-04-01 (the fixture's clock). Section 0001: u01 primary
  // since 2020, u02 for today only, u03 ended yesterday, u04 starting with
  // u01. u01 also belongs to 0002 (deleted) and belonged to 0000.
  void AddOrganisation() {
    for (std::string suffix : {"", "_WORK"}) {
      for (auto [code, name] : {std::pair{"0000", "本社"}, {"0001", "営業部"}, {"0002", "開発部"}})
        Insert("T_SECTION" + suffix,
               {{"SEC_CD", code}, {"SEC_NM", name}, {"UPD_KBN", std::string(code) == "0002" ? "1" : "3"}});
      InsertRows("T_SECMEMBER" + suffix, {"SEC_CD", "USER_ID", "SEC_KBN", "USER_SEQ", "POST_CD", "ST_YMD", "ED_YMD"},
                 {{"0001", "u01", "1", "002", "P1", "20200101", "99999999"},
                  {"0001", "u02", "0", "001", "P2", "20240401", "20240401"},
                  {"0001", "u03", "1", "003", "P3", "20230101", "20240331"},
                  {"0001", "u04", "0", "004", "P6", "20200101", "99999999"},
                  {"0002", "u01", "0", "001", "P4", "20210101", "99999999"},
                  {"0000", "u01", "0", "001", "P5", "20190101", "20191231"}});
    }
    InsertRows("T_USER", {"USER_ID", "NAME_KJ", "MAIL", "POST_CD"},
               {{"u01", "相沢", "c@x", "03"},
                {"u02", "井上", "a@x", "01"},
                {"u03", "渡辺", "b@x", "02"},
                {"u04", "遠藤", "0@x", "04"}});
  }
  // The user ids of a 104 answer: every seventh field from the second.
  static std::string Ids(const std::string& answer) {
    std::vector<std::string> fields = text::Split(answer, ","), ids;
    for (size_t i = 1; i < fields.size(); i += 7) ids.push_back(fields[i]);
    return answer.empty() ? "" : text::Join(ids, " ");
  }
};

TEST_P(MemberQueries, MembersOfASectionSortedAndCurrentOnly) {
  AddOrganisation();
  EXPECT_EQ(Request("ReqNo=104&Group_cd=0001&S_OPT=1"),
            "井上,u02,0,P2,a@x,20240401,20240401,相沢,u01,1,P1,c@x,20200101,99999999,遠藤,u04,0,P6,0@x,20200101,"
            "99999999");
  struct Case {
    const char *query, *ids;
  } cases[] = {
      {"", "u02 u01 u03 u04"},
      {"S_Col=other&S_Type=1", "u02 u01 u03 u04"},  // USER_SEQ, never descending
      {"S_Col=name", "u02 u03 u01 u04"},
      {"S_Col=NAME&S_Type=1", "u04 u01 u03 u02"},
      {"S_Col=id&S_Type=1", "u04 u03 u02 u01"},
      {"S_Col=post", "u02 u03 u01 u04"},  // the user table's POST_CD
      {"S_Col=mail", "u04 u02 u03 u01"},
      {"S_Col=term", "u01 u04 u03 u02"},
      {"S_Col=term&S_Type=1", "u02 u03 u01 u04"},  // the USER_SEQ tie-break stays ascending
      {"S_Col=term&S_OPT=1", "u01 u04 u02"},
  };
  for (const Case& c : cases)
    EXPECT_EQ(Ids(Request(std::string("ReqNo=104&Group_cd=0001&") + c.query)), c.ids) << c.query;
  EXPECT_EQ(Request("ReqNo=104&Group_cd=0099&S_Col=id"), "");
  clock().Set({2024, 4, 2, 0, 0, 0});
  EXPECT_EQ(Ids(Request("ReqNo=104&Group_cd=0001&S_OPT=1")), "u01 u04");
}

TEST_P(MemberQueries, SectionsOfAUserPrimaryFirst) {
  AddOrganisation();
  const std::string primary = "u01,1,002,P1,0001,営業部,20200101,99999999,u01,0,001,P5,0000,本社,20190101,20191231";
  EXPECT_EQ(Request("ReqNo=108&User_cd=u01"), primary + ",u01,0,001,P4,0002,開発部,20210101,99999999");
  EXPECT_EQ(Request("ReqNo=108&User_cd=u01&DBFlg=1"), primary);  // the deleted section drops out
  EXPECT_EQ(Request("ReqNo=108&User_cd=nobody"), "");
}

TEST_P(MemberQueries, MenuRightsOverTheCatalogue) {
  auto add_rights = [this](const char* user, std::vector<std::string> granted) {
    orvane::testing::Row row = {{"USER_ID", user}};
    for (const std::string& code : text::Split(data::kMenuCodeList, ","))
      row.emplace_back("MENU" + code, std::find(granted.begin(), granted.end(), code) != granted.end() ? code : "ZZ");
    Insert("MENU_USER", row);
  };
  add_rights("u01", {"01", "21"});
  add_rights("u02", {"02", "79"});
  dir().Write("menuinfo.csv", "01,スケジュール,1\n02,設備予約,1\n21,メール,1\n");
  ReloadApplication();
  EXPECT_EQ(Request("ReqNo=110&User_cd=u01"), "u01,/01/02/21/,/スケジュール/施設予約/メール/,/01/ZZ/21/");

  dir().Write("menuinfo.csv", "00,トップ\n11,会議室\n15,車両\n20,備品\n30,集計\n52,非表示\n53,非表示\n");
  ReloadApplication();
  ExpectAnswers("ReqNo=110&", {{"User_cd=u01", "u01,/02/30/,/施設予約/集計/,/ZZ/ZZ/"},
                               {"User_cd=u02", "u02,/02/30/,/施設予約/集計/,/02/ZZ/"},
                               {"User_cd=nobody", ",/02/30/,/施設予約/集計/,/ZZ/ZZ/"},
                               {"User_cd=u02&DBFlg=1", ",/02/30/,/施設予約/集計/,/ZZ/ZZ/"}});  // an empty work table
  dir().Write("menuinfo.csv", "");
  ReloadApplication();
  EXPECT_EQ(Request("ReqNo=110&User_cd=u02"), "u02,/,/,/");
}

ORVANE_DB_TEST_SUITE(MemberQueries);

}  // namespace
}  // namespace orvane::members
