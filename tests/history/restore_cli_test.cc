// `orvane restore` and `orvane undo` from a shell on a real database: exit
// status 0 when done, 1 with the reason when refused, 2 for a call that
// cannot run.
#include <gtest/gtest.h>

#include "support/binary.h"
#include "support/db_fixture.h"

namespace orvane {
namespace {

using testing::RunBinary;

class RestoreCli : public testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    InsertDemo();
    // The program runs on today's clock, the changes below on the test's.
    WriteConfig("ML_MODE=1\nHISTORY_RETENTION_DAYS=36500\n");
    session().Set("PUB_USR_ID", "admin");
  }
  std::string LastEntry() { return Rows(data::Sql() << "select max(ID) from " << data::Table("ORVANE_HISTORY"))[0][0]; }
};

TEST_P(RestoreCli, ExitsZeroWhenDoneAndOneWithTheReasonWhenRefused) {
  ASSERT_EQ(Request("ReqNo=206&User_cd=sato"), "OK");
  ASSERT_EQ(Request("ReqNo=212&Group_cd1=0005&Group_cd2=0002"), "OK");
  const std::string move = LastEntry();
  ASSERT_EQ(Request("ReqNo=212&Group_cd1=0005&Group_cd2=0003"), "OK");
  const std::string config = " --config " + ConfigPath();
  const struct {
    std::string args;
    int status;
    std::string output;  // "#" stands for the next entry's number
  } cases[] = {
      {"restore" + config + " --user sato", 0, "done: history entry #\n"},
      {"restore" + config + " --user sato", 1,
       "orvane restore: ERROR:RESTORETAKEN: the user id sato has been taken since\n"},
      {"restore" + config + " --group 0005", 1,
       "orvane restore: ERROR:RESTORENOTFOUND: no deleted group 0005 within the retention period\n"},
      {"restore" + config, 2, "orvane restore: give --user ID or --group CODE\n"},
      {"undo" + config + " " + move, 1,
       "orvane undo: ERROR:UNDOCHANGED: group 0005 changed since: parent is now 0003, the change left 0002\n"},
      {"undo" + config + " " + std::to_string(std::stol(move) + 1), 0, "done: history entry #\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.args);
    std::string expected = c.output;
    if (size_t hash = expected.find('#'); hash != std::string::npos)
      expected.replace(hash, 1, std::to_string(std::stol(LastEntry()) + 1));
    auto [status, out] = RunBinary(c.args);
    EXPECT_EQ(status, c.status);
    EXPECT_EQ(out, expected);
  }
  EXPECT_EQ(Rows(data::Sql() << "select JOI_SEC from " << data::Table("T_SECTION") << " where SEC_CD = '0005'")[0][0],
            "0002");
}

ORVANE_DB_TEST_SUITE(RestoreCli);

}  // namespace
}  // namespace orvane
