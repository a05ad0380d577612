// Restore and undo from outside, on a real database: the history's changing
// endpoints over real HTTP (the deleted list, a restore and an undo as the
// History screen sends them, the gates every change passes) and `orvane
// restore` and `orvane undo` from a shell (exit status 0 when done, 1 with
// the reason when refused, 2 for a call that cannot run).
#include <gtest/gtest.h>

#include "support/binary.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using testing::LiveServer;

class RestoreApi : public testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    InsertDemo();
    // The commands run on today's clock, the changes on the test's.
    WriteConfig("ML_MODE=1\nHISTORY_RETENTION_DAYS=36500\n");
    server_ = std::make_unique<LiveServer>(ConfigPath(), clock());
    admin_ = server_->LogIn("admin", "admin");
  }
  // "status body" of a GET, or of a POST of `form`; `headers` beside the administrator's cookie.
  std::string Send(const char* method, const std::string& target, const std::string& form = "",
                   httplib::Headers headers = {}, bool logged_in = true) {
    return server_->Call(target, logged_in ? admin_ : "",
                         std::string(method) == "GET" ? std::nullopt : std::optional(form), std::move(headers));
  }
  std::string LastEntry() { return Rows(data::Sql() << "select max(ID) from " << data::Table("ORVANE_HISTORY"))[0][0]; }
  std::unique_ptr<LiveServer> server_;
  std::string admin_;
};

TEST_P(RestoreApi, DeletedListRestoreAndUndoAsTheHistoryScreenSendsThem) {
  ASSERT_EQ(Send("POST", "/orvane", "ReqNo=206&User_cd=tanaka"), "200 OK");
  const std::string deletion = LastEntry();
  EXPECT_EQ(Send("GET", "/api/history/deleted?kind=user"),
            "200 {\"deleted\":[{\"entry\":" + deletion +
                ",\"key\":\"tanaka\",\"kind\":\"user\",\"name\":\"田中 一郎\",\"restorable\":true,"
                "\"time\":\"2024-04-01 10:20:30\"}]}");
  const long restored = std::stol(deletion) + 1;
  EXPECT_EQ(Send("POST", "/api/history/restore", "kind=user&key=tanaka"),
            "200 {\"entry\":" + std::to_string(restored) + ",\"ok\":true}");
  EXPECT_EQ(
      Send("POST", "/api/history/restore", "kind=user&key=tanaka"),
      "200 {\"error\":\"ERROR:RESTORETAKEN\",\"message\":\"the user id tanaka has been taken since\",\"ok\":false}");
  EXPECT_NE(Send("GET", "/api/history/deleted?kind=user").find("\"restorable\":false"), std::string::npos);
  EXPECT_EQ(Send("GET", "/api/history/deleted?kind=group"), "200 {\"deleted\":[]}");

  ASSERT_EQ(Send("POST", "/orvane", "ReqNo=212&Group_cd1=0005&Group_cd2=0002"), "200 OK");
  const std::string move = LastEntry();
  EXPECT_EQ(Send("POST", "/api/history/undo", "entry=" + move),
            "200 {\"entry\":" + std::to_string(std::stol(move) + 1) + ",\"ok\":true}");
  EXPECT_EQ(Rows(data::Sql() << "select JOI_SEC from " << data::Table("T_SECTION") << " where SEC_CD = '0005'")[0][0],
            "0001");
  // The drawn tree the server holds follows the undo.
  EXPECT_NE(Send("GET", "/application/App_A_strSec_hierarchical").find("0005"), std::string::npos);
}

TEST_P(RestoreApi, EveryChangePassesTheSameGates) {
  const httplib::Headers none, origin = {{"Origin", "http://evil.example"}}, site = {{"Sec-Fetch-Site", "cross-site"}};
  const struct {
    const char *target, *form;
    const httplib::Headers& headers;
    bool logged_in;
    const char* answer;
  } cases[] = {
      {"undo", "entry=1", none, false, R"(401 {"error":"ERROR:SESSIONCHECK"})"},
      {"restore", "kind=user&key=sato", none, false, R"(401 {"error":"ERROR:SESSIONCHECK"})"},
      {"undo", "entry=1", origin, true, R"(403 {"error":"ERROR:CROSSORIGIN"})"},
      {"restore", "kind=user&key=sato", site, true, R"(403 {"error":"ERROR:CROSSORIGIN"})"},
      {"undo", "entry=abc", none, true,
       R"(400 {"error":"ERROR:INVALIDVALUE","message":"entry: a history entry's number","ok":false})"},
      {"restore", "kind=post&key=01", none, true,
       R"(400 {"error":"ERROR:INVALIDVALUE","message":"kind: user or group, key: its id or code","ok":false})"},
      {"undo", "entry=999", none, true,
       R"(200 {"error":"ERROR:UNDONOTFOUND","message":"there is no history entry 999","ok":false})"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.target) + " " + c.form);
    EXPECT_EQ(Send("POST", std::string("/api/history/") + c.target, c.form, c.headers, c.logged_in), c.answer);
  }
  EXPECT_EQ(Send("GET", "/api/history/deleted?kind=post"),
            R"(400 {"error":"ERROR:INVALIDVALUE","message":"kind: user or group"})");
  EXPECT_EQ(Send("GET", "/api/history/deleted?kind=user", "", {}, false), R"(401 {"error":"ERROR:SESSIONCHECK"})");
}

TEST_P(RestoreApi, TheCommandsExitZeroWhenDoneAndOneWithTheReasonWhenRefused) {
  ASSERT_EQ(Send("POST", "/orvane", "ReqNo=206&User_cd=sato"), "200 OK");
  ASSERT_EQ(Send("POST", "/orvane", "ReqNo=212&Group_cd1=0005&Group_cd2=0002"), "200 OK");
  const std::string move = LastEntry();
  ASSERT_EQ(Send("POST", "/orvane", "ReqNo=212&Group_cd1=0005&Group_cd2=0003"), "200 OK");
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
    EXPECT_EQ(testing::RunBinary(c.args), std::pair(c.status, expected));
  }
  EXPECT_EQ(Rows(data::Sql() << "select JOI_SEC from " << data::Table("T_SECTION") << " where SEC_CD = '0005'")[0][0],
            "0002");
}

ORVANE_DB_TEST_SUITE(RestoreApi);

}  // namespace
}  // namespace orvane
