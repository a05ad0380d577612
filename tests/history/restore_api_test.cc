// The history's changing endpoints over real HTTP against a real database:
// the deleted list, a restore and an undo as the History screen sends them,
// and the gates every change passes (administrator, origin, the body).
#include <gtest/gtest.h>

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
    WriteConfig("ML_MODE=1\n");
    server_ = std::make_unique<LiveServer>(ConfigPath(), clock());
    admin_ = server_->LogIn("admin", "admin");
  }
  // "status body" of a GET, or of a POST of `form`; `headers` beside the administrator's cookie.
  std::string Send(const char* method, const std::string& target, const std::string& form = "",
                   httplib::Headers headers = {}, bool logged_in = true) {
    return server_->Call(target, logged_in ? admin_ : "",
                         std::string(method) == "GET" ? std::nullopt : std::optional(form), std::move(headers));
  }
  std::unique_ptr<LiveServer> server_;
  std::string admin_;
};

TEST_P(RestoreApi, DeletedListRestoreAndUndoAsTheHistoryScreenSendsThem) {
  ASSERT_EQ(Send("POST", "/orvane", "ReqNo=206&User_cd=tanaka"), "200 OK");
  const std::string deletion = Rows(data::Sql() << "select max(ID) from " << data::Table("ORVANE_HISTORY"))[0][0];
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
  const std::string move = Rows(data::Sql() << "select max(ID) from " << data::Table("ORVANE_HISTORY"))[0][0];
  EXPECT_EQ(Send("POST", "/api/history/undo", "entry=" + move),
            "200 {\"entry\":" + std::to_string(std::stol(move) + 1) + ",\"ok\":true}");
  EXPECT_EQ(Rows(data::Sql() << "select JOI_SEC from " << data::Table("T_SECTION") << " where SEC_CD = '0005'")[0][0],
            "0001");
  // The drawn tree the server holds follows the undo.
  EXPECT_NE(Send("GET", "/application/App_A_strSec_hierarchical").find("0005"), std::string::npos);
}

TEST_P(RestoreApi, EveryChangePassesTheSameGates) {
  const struct {
    const char* target;
    const char* form;
    httplib::Headers headers;
    bool logged_in;
    const char* answer;
  } cases[] = {
      {"/api/history/undo", "entry=1", {}, false, "401 {\"error\":\"ERROR:SESSIONCHECK\"}"},
      {"/api/history/restore", "kind=user&key=sato", {}, false, "401 {\"error\":\"ERROR:SESSIONCHECK\"}"},
      {"/api/history/undo",
       "entry=1",
       {{"Origin", "http://evil.example"}},
       true,
       "403 {\"error\":\"ERROR:CROSSORIGIN\"}"},
      {"/api/history/restore",
       "kind=user&key=sato",
       {{"Sec-Fetch-Site", "cross-site"}},
       true,
       "403 {\"error\":\"ERROR:CROSSORIGIN\"}"},
      {"/api/history/undo",
       "entry=abc",
       {},
       true,
       "400 {\"error\":\"ERROR:INVALIDVALUE\",\"message\":\"entry: a history entry's number\",\"ok\":false}"},
      {"/api/history/restore",
       "kind=post&key=01",
       {},
       true,
       "400 {\"error\":\"ERROR:INVALIDVALUE\",\"message\":\"kind: user or group, key: its id or code\",\"ok\":false}"},
      {"/api/history/undo",
       "entry=999",
       {},
       true,
       "200 {\"error\":\"ERROR:UNDONOTFOUND\",\"message\":\"there is no history entry 999\",\"ok\":false}"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(std::string(c.target) + " " + c.form);
    EXPECT_EQ(Send("POST", c.target, c.form, c.headers, c.logged_in), c.answer);
  }
  EXPECT_EQ(Send("GET", "/api/history/deleted?kind=post"),
            "400 {\"error\":\"ERROR:INVALIDVALUE\",\"message\":\"kind: user or group\"}");
  EXPECT_EQ(Send("GET", "/api/history/deleted?kind=user", "", {}, false), "401 {\"error\":\"ERROR:SESSIONCHECK\"}");
}

ORVANE_DB_TEST_SUITE(RestoreApi);

}  // namespace
}  // namespace orvane
