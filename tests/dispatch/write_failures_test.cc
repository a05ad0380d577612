// The write frame when the database fails part-way (through the data
// layer's failure seam), on a real SQLite and PostgreSQL database: each
// failure point of a changing request, its exact answer in the order its
// rules give, and the rows it leaves. Three rule sets: the group
// registration (codes alone, a failing rollback or close answered in
// place of the step), the membership registration (every code with its
// trail, a failing close first) and the move (codes alone, a failing close
// behind). Also the access log line that carries the database's words.
#include <gtest/gtest.h>

#include <vector>

#include "support/db_fixture.h"
#include "support/failure_seam.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using orvane::testing::Point;
using orvane::testing::ScopedFailure;

class WriteFailures : public orvane::testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (IsSkipped()) return;  // no PostgreSQL server: nothing to set up
    session().Set("PUB_USR_ID", "admin");
    Insert("T_SECTION", {{"SEC_CD", "0000"}, {"JOI_SEC", "9999"}, {"SEC_SEQ", "001"}, {"SEC_TREE", "0000"}});
    Insert("T_SECTION", {{"SEC_CD", "0001"}, {"JOI_SEC", "0000"}, {"SEC_SEQ", "001"}, {"SEC_TREE", "0000/0001"}});
    Insert("T_SECTION", {{"SEC_CD", "0002"}, {"JOI_SEC", "0000"}, {"SEC_SEQ", "002"}, {"SEC_TREE", "0000/0002"}});
    Insert("T_SECMEMBER", {{"SEC_CD", "0001"}, {"USER_ID", "u1"}, {"SEC_KBN", "0"}, {"USER_SEQ", "001"}});
  }
};

// "[routine]エラー番号 0 [XY000] boom", the seam's failure as a trail.
std::string Trail(const char* routine, const char* sqlstate) {
  return std::string("[") + routine + "]エラー番号 0 [" + sqlstate + "] boom";
}

TEST_P(WriteFailures, EachFailurePointAnswersInItsOrderAndChangesNothing) {
  const std::string add = "ReqNo=201&Group_cd=0000&Group_nm=新";
  const std::string change = "ReqNo=208&Group_cd=0001&User_cd=u1&Primary=1&ST_Ymd=20240101&ED_Ymd=";
  const std::string move = "ReqNo=212&Group_cd1=0001&Group_cd2=0002";
  struct Arm {
    Point point;
    int nth;
    const char* sqlstate;
  };
  struct Case {
    std::string query;
    std::vector<Arm> arms;
    std::string answer;  // exact, or the beginning when it ends in "..."
    bool changed = false;
  } cases[] = {
      // Group registration.
      {add, {{Point::kOpen, 1, "08001"}}, "ERROR:DBOPEN"},
      {add, {{Point::kBegin, 1, "HY000"}}, "ERROR:BEGINTRANSACTION"},
      {add, {{Point::kBegin, 1, "HY000"}, {Point::kClose, 1, "08S01"}}, "ERROR:DBCLOSE"},
      {add,
       {{Point::kStatement, 1, "HY000"}},
       "ERROR:DBSELECTfunGetUpperTree1\r\n" + Trail("Com_funSelect", "HY000") +
           "<BR><BR>SQL : select SEC_TREE,TREE_NM from T_SECTION where SEC_CD = '0000'"},
      {add,
       {{Point::kStatement, 5, "23000"}},
       "ERROR:SQLEXECRegistGroup\r\nfunInsGroup\r\n" + Trail("Com_funExecsql", "23000") +
           "<BR><BR>SQL : insert into T_SECTION (SEC_CD ,SEC_NM ,DSP_NM ,JOI_SEC ,SEC_SEQ ,SEC_TREE ,TREE_NM "
           ",IMAIL_LIST "
           ",UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR ,BUSHO_CD ) values ('0003' ,'新' ,'' ,'0000' ,'003' ,'0000/0003' "
           ",'/ 新' ,'' ,'3' ,'20240401' ,'102030' ,'admin' ,'')"},
      {add, {{Point::kStatement, 5, "23000"}, {Point::kRollback, 1, "HY000"}}, "ERROR:DBROLLBACK"},
      {add, {{Point::kStatement, 5, "23000"}, {Point::kClose, 1, "08S01"}}, "ERROR:DBCLOSE"},
      {add, {{Point::kCommit, 1, "40001"}}, "ERROR:DBCOMMIT"},
      {add, {{Point::kArrayCopy, 1, "HY000"}}, "ERROR:SETAPPLICATIONVALUE", true},
      {add, {{Point::kClose, 1, "08S01"}}, "ERROR:DBCLOSE", true},
      // Membership registration.
      {change, {{Point::kOpen, 1, "08001"}}, "ERROR:DBOPEN" + Trail("Com_funDbOpen", "08001") + "<BR><BR>SQL : "},
      {change,
       {{Point::kBegin, 1, "HY000"}, {Point::kClose, 1, "08S01"}},
       "ERROR:DBCLOSE" + Trail("Com_funDbClose", "08S01") + "ERROR:BEGINTRANSACTION" +
           Trail("Com_funBeginTrans", "HY000")},
      {change,
       {{Point::kStatement, 2, "23000"}, {Point::kRollback, 1, "HY000"}, {Point::kClose, 1, "08S01"}},
       "ERROR:DBCLOSE" + Trail("Com_funDbClose", "08S01") + "ERROR:RECUPDATEfunUpdAdmMember\r\n" +
           Trail("Com_funExecsql", "23000") + "<BR><BR>SQL : update T_SECMEMBER set SEC_KBN = '1' ..."},
      {change, {{Point::kCommit, 1, "40001"}}, "ERROR:DBCOMMIT" + Trail("Com_funCommitTrans", "40001")},
      {change, {{Point::kClose, 1, "08S01"}}, "ERROR:DBCLOSE" + Trail("Com_funDbClose", "08S01"), true},
      // The move.
      {move, {{Point::kStatement, 5, "23000"}, {Point::kClose, 1, "08S01"}}, "ERROR:SQLEXECERROR:DBCLOSE"},
      {move, {{Point::kCommit, 1, "40001"}}, "ERROR:DBCOMMIT"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.query + " -> " + c.answer);
    const std::string before = AllRows({"T_SECTION", "T_SECMEMBER"});
    std::string answer;
    {
      ScopedFailure failures(c.arms[0].point, c.arms[0].nth, c.arms[0].sqlstate, "boom");
      for (size_t i = 1; i < c.arms.size(); ++i)
        failures.Also(c.arms[i].point, c.arms[i].nth, c.arms[i].sqlstate, "boom");
      answer = Request(c.query);
    }
    std::string expected = c.answer;
    if (expected.ends_with("<BR><BR>SQL : ")) expected += Dsn();
    if (expected.ends_with("...")) {
      expected.resize(expected.size() - 3);
      EXPECT_TRUE(answer.starts_with(expected)) << answer;
    } else {
      EXPECT_EQ(answer, expected);
    }
    EXPECT_EQ(AllRows({"T_SECTION", "T_SECMEMBER"}) != before, c.changed);
    if (c.changed) {  // back to the start for the next case
      Exec(data::Sql() << "delete from " << data::Table("T_SECTION") << " where SEC_CD = '0003'");
      Exec(data::Sql() << "update " << data::Table("T_SECMEMBER") << " set SEC_KBN = '0'");
    }
  }
}

TEST_P(WriteFailures, TheAccessLogCarriesTheDatabasesWordsWithoutPasswords) {
  orvane::testing::LiveServer server(ConfigPath(), orvane::testing::OpenReads(), clock());
  auto client = server.Client();
  {
    ScopedFailure failure(Point::kStatement, 1, "42P01", "no \"T\" for sekret\r\nat all", 7);
    auto res = client.Post("/orvane", "ReqNo=105&Group_cd=0001&User_PS=sekret", "application/x-www-form-urlencoded");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->body, "ERROR:DBSELECT");
  }
  EXPECT_TRUE(server.Log().ends_with(" \"ERROR:DBSELECT\" db=7,\"42P01\",\"no \\x22T\\x22 for ***\\x0D\\x0Aat all\"\n"))
      << server.Log();
}

ORVANE_DB_TEST_SUITE(WriteFailures);

}  // namespace
}  // namespace orvane
