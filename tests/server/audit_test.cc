// The audit trail over real HTTP against a real database, and `orvane audit`
// reading it back.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "support/binary.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using testing::LiveServer;
using testing::RunBinary;
using Audit = testing::DbTest;

TEST_P(Audit, EveryChangeLoginAndLogoutLeavesOneLineWithoutPasswords) {
  Insert("T_USER", {{"USER_ID", "boss"}, {"PASSWORD", "boss-pw"}});
  Insert("MENU_USER", {{"USER_ID", "boss"}, {"MENU50", "50"}});
  const std::string path = dir().File("audit.log");
  {
    LiveServer server(ConfigPath(), clock());
    ASSERT_TRUE(server.state().audit_log.Open(path).ok());
    server.Call("/login", "", "User_cd=boss&User_PS=guess");
    const std::string cookie = server.LogIn("boss", "boss-pw");
    server.Call("/orvane", cookie, "ReqNo=213&User_cd=boss&User_Menu=01&User_PS=boss-pw");
    server.Call("/orvane?ReqNo=105&Group_cd=0001", cookie, "");  // a query: no line
    server.Call("/orvane", "", "ReqNo=203&Group_cd=0009");       // refused at the edge
    server.Call("/logout", cookie, "");
  }
  struct Line {
    const char *event, *user, *code, *answer;
    const char* fields;  // the JSON object, or "" for none
  } want[] = {
      {"login-failed", "boss", "", "ERROR:LOGIN", ""},
      {"login", "boss", "", "OK", ""},
      {"request", "boss", "213", "OK", R"({"ReqNo":"213","User_Menu":"01","User_PS":"***","User_cd":"boss"})"},
      {"request", "", "203", "ERROR:SESSIONCHECK", R"({"Group_cd":"0009","ReqNo":"203"})"},
      {"logout", "boss", "", "OK", ""},
  };
  std::ifstream in(path);
  std::vector<nlohmann::json> lines;
  for (std::string line; std::getline(in, line);) lines.push_back(nlohmann::json::parse(line));
  ASSERT_EQ(lines.size(), std::size(want));
  for (size_t i = 0; i < lines.size(); ++i) {
    const nlohmann::json& j = lines[i];
    EXPECT_TRUE(
        std::regex_match(j["time"].get<std::string>(), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\d[+-]\d{4})")));
    EXPECT_EQ(j["event"], want[i].event) << i;
    EXPECT_EQ(j["user"], want[i].user) << i;
    EXPECT_EQ(j["client"], "127.0.0.1") << i;
    EXPECT_EQ(j.value("code", ""), want[i].code) << i;
    EXPECT_EQ(j["answer"], want[i].answer) << i;
    EXPECT_EQ(j.contains("fields") ? j["fields"].dump() : "", want[i].fields) << i;
  }

  // `orvane audit` reads it back, filtered; the time is the first column.
  struct Query {
    std::string args;
    std::vector<std::string> rest;  // each printed line after its time
  } queries[] = {
      {"--code 213", {"  boss@127.0.0.1  213  OK  User_Menu=01  User_PS=***  User_cd=boss"}},
      {"--user boss --code login", {"  boss@127.0.0.1  login  OK"}},
      {"--code 203", {"  -@127.0.0.1  203  ERROR:SESSIONCHECK  Group_cd=0009"}},
      {"--since 2999-01-01", {}},
  };
  for (const Query& q : queries) {
    auto [status, out] = RunBinary("audit --audit-log " + path + " " + q.args);
    EXPECT_EQ(status, 0) << q.args;
    std::vector<std::string> rest;
    for (size_t at = 0, end; (end = out.find('\n', at)) != std::string::npos; at = end + 1)
      rest.push_back(out.substr(at + 24, end - at - 24));
    EXPECT_EQ(rest, q.rest) << q.args << "\n" << out;
  }
}

ORVANE_DB_TEST_SUITE(Audit);

}  // namespace
}  // namespace orvane
