// The read requests when the database fails part-way (through the data
// layer's failure seam), on a real SQLite and PostgreSQL database: the
// answer codes of the query frame, in the order the steps write them.
#include <gtest/gtest.h>

#include <vector>

#include "support/db_fixture.h"
#include "support/failure_seam.h"

namespace orvane {
namespace {

using orvane::testing::DbTest;
using orvane::testing::Point;
using orvane::testing::ScopedFailure;
using QueryFailures = DbTest;

TEST_P(QueryFailures, EachStepsFailureGivesItsAnswer) {
  Insert("T_SECTION", {{"SEC_CD", "0000"}, {"JOI_SEC", "9999"}, {"SEC_NM", "本社"}});
  Insert("T_SECTION", {{"SEC_CD", "0001"}, {"JOI_SEC", "0000"}, {"SEC_NM", "営業部"}, {"IMAIL_LIST", "sales"}});
  Insert("T_USER", {{"USER_ID", "u1"}, {"NAME_KJ", "相沢"}, {"MAIL", "a@x"}});
  Insert("T_SECMEMBER", {{"SEC_CD", "0001"}, {"USER_ID", "u1"}, {"ST_YMD", "20240101"}, {"ED_YMD", "99999999"}});
  Insert("T_POST_MST", {{"POST_CD", "01"}, {"POST_NAME", "部長"}});
  Insert("MENU_USER", {{"USER_ID", "u1"}});
  for (const char* list : {"sales", "board"}) dir().Write("mail/Lists/" + std::string(list) + "/users.lst", "");

  struct Arm {
    Point point;
    int nth = 1;
  };
  struct Case {
    std::string query;
    std::vector<Arm> arms;
    std::string answer;
  };
  std::vector<Case> cases = {
      {"002&S_Kbn=U", {{Point::kArrayCopy}}, "ERROR:DBSELECTARRAY"},
      {"002&S_Kbn=U", {{Point::kRecordsetClose}}, "ERROR:RSCLOSE"},
      {"002&S_Kbn=U", {{Point::kClose}}, "ERROR:DBCLOSE1"},
      {"002&S_Kbn=U", {{Point::kArrayCopy}, {Point::kClose}}, "ERROR:DBSELECTARRAYERROR:DBCLOSE"},
      {"101", {{Point::kFetch, 2}}, "ERROR:DBFETCH"},
      {"101", {{Point::kRecordsetClose, 2}, {Point::kClose}}, "ERROR:RSCLOSEERROR:DBCLOSE"},
      {"101", {{Point::kStatement, 2}, {Point::kClose}}, "ERROR:DBSELECTERROR:DBCLOSE"},
      {"110&User_cd=u1", {{Point::kOpen}, {Point::kClose}}, "ERROR:DBOPEN"},
  };
  // Each read's answer when its first fetch, its recordset's close or the
  // connection's close fails. The list choice reports a failed fetch as a
  // failed select, and writes no list behind a failed connection close.
  struct Steps {
    const char *query, *fetch, *close;
  } steps[] = {
      {"101", "ERROR:DBFETCH", "ERROR:DBCLOSE0000,9999,本社,0001,0000,営業部"},
      {"102&S_Col=id&S_pos=1&B_pos=10", "ERROR:DBFETCH", "ERROR:DBCLOSE相沢,u1,,,a@x,"},
      {"103&Group_cd=0000", "ERROR:DBFETCH", "ERROR:DBCLOSE0001,0000,営業部"},
      {"104&Group_cd=0001", "ERROR:DBFETCH ", "ERROR:DBCLOSE相沢,u1,,,a@x,20240101,99999999"},
      {"105&Group_cd=0001", "ERROR:DBFETCH", "ERROR:DBCLOSE0001,営業部,,,,sales,,"},
      {"106&User_cd=u1", "ERROR:DBFETCH", "ERROR:DBCLOSEu1,相沢,,,a@x,,,,,,,"},
      {"107&M_List=", "ERROR:DBSELECT", "ERROR:DBCLOSE"},
      {"108&User_cd=u1", "ERROR:DBFETCH", "ERROR:DBCLOSEu1,,,,0001,営業部,20240101,99999999"},
      {"109", "ERROR:DBFETCH", "ERROR:DBCLOSE01,部長"},
      {"110&User_cd=u1", "ERROR:DBFETCH", "ERROR:DBCLOSEu1,/,/,/"},
  };
  for (const Steps& s : steps) {
    cases.push_back({s.query, {{Point::kFetch}}, s.fetch});
    cases.push_back({s.query, {{Point::kRecordsetClose}}, "ERROR:RSCLOSE"});
    cases.push_back({s.query, {{Point::kClose}}, s.close});
  }
  EXPECT_EQ(Request("ReqNo=107&M_List="), "board");
  for (const Case& c : cases) {
    ScopedFailure failures(c.arms[0].point, c.arms[0].nth, "HY000", "seamed failure");
    for (size_t i = 1; i < c.arms.size(); ++i) failures.Also(c.arms[i].point, c.arms[i].nth, "HY000", "seamed failure");
    EXPECT_EQ(Request("ReqNo=" + c.query), c.answer)
        << c.query << ", failing point " << static_cast<int>(c.arms[0].point) << " call " << c.arms[0].nth;
  }
}

ORVANE_DB_TEST_SUITE(QueryFailures);

}  // namespace
}  // namespace orvane
