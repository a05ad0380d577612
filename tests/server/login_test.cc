// POST /login and /logout over real HTTP against a real database, and the
// audit trail they and every change leave, which `orvane audit` reads back.
#include <gtest/gtest.h>

#include <array>
#include <fstream>
#include <nlohmann/json.hpp>
#include <regex>

#include "support/binary.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using testing::LiveServer;
using Login = testing::DbTest;

TEST_P(Login, RightAndWrongPasswordsAndTheSessionTheyLeave) {
  Insert("T_USER", {{"USER_ID", "yamada"}, {"PASSWORD", "pa'ss"}, {"NAME_KJ", "山田 太郎"}, {"MAIL", "t.yamada"}});
  Insert("T_USER", {{"USER_ID", "sato"}, {"PASSWORD", "sato"}, {"NAME_KJ", "佐藤"}});
  for (std::string c : {"0001", "0002", "0003"}) {
    Insert("T_SECTION",
           {{"SEC_CD", c}, {"SEC_NM", "課" + c}, {"DSP_NM", "表示" + c}, {"SEC_TREE", "0000/" + c}, {"UPD_KBN", "3"}});
  }
  // Current on 2024-04-01: 0002 (primary) and 0001; 0003 ended before.
  for (auto [code, kind, from, to] : {std::array<const char*, 4>{"0001", "0", "20200101", "99999999"},
                                      {"0002", "1", "20240401", "99999999"},
                                      {"0003", "1", "20200101", "20240331"}}) {
    Insert("T_SECMEMBER",
           {{"SEC_CD", code}, {"USER_ID", "yamada"}, {"SEC_KBN", kind}, {"ST_YMD", from}, {"ED_YMD", to}});
  }
  LiveServer server(ConfigPath(), clock());
  auto client = server.Client();
  // The answer and the Set-Cookie header of a POST, with the session cookie `sid` when not empty.
  auto post = [&](const char* path, const std::string& sid, const char* form) {
    httplib::Headers headers;
    if (!sid.empty()) headers.emplace("Cookie", "ORVANE_SID=" + sid);
    auto res = client.Post(path, headers, form, testing::kForm);
    return res ? std::pair(res->body, res->get_header_value("Set-Cookie"))
               : std::pair(std::string("(none)"), std::string());
  };
  auto session_id = [](const std::string& cookie) {
    std::string id = cookie.substr(11, 32);
    EXPECT_EQ(cookie, "ORVANE_SID=" + id + "; Path=/; HttpOnly; SameSite=Strict");
    return id;
  };
  // The second is ' or '1'='1.
  for (const char* form : {"User_cd=yamada&User_PS=wrong", "User_cd=yamada&User_PS=%27%20or%20%271%27%3D%271",
                           "User_cd=nobody&User_PS=pa%27ss", "User_cd=&User_PS="})
    EXPECT_EQ(post("/login", "", form), std::pair(std::string("ERROR:LOGIN"), std::string())) << form;
  auto [ok, set_cookie] = post("/login", "", "User_cd=yamada&User_PS=pa%27ss");
  ASSERT_EQ(ok, "OK");
  std::string id = session_id(set_cookie);
  std::shared_ptr<Session> session = server.state().sessions->Find(id);
  ASSERT_TRUE(session);
  const std::pair<const char*, const char*> values[] = {
      {"PUB_USR_ID", "yamada"}, {"PUB_USR_PW", "pa'ss"},  {"PUB_USR_NM", "山田 太郎"}, {"PUB_MAIL", "t.yamada"},
      {"PUB_SEC_CD", "0002"},   {"PUB_SEC_NM", "課0002"}, {"PUB_DSP_NM", "表示0002"},  {"PUB_SEC_TREE", "0000/0002"},
  };
  for (auto [name, value] : values) EXPECT_EQ(session->Get(name), value) << name;

  // A failed login with the cookie leaves that session as it was (five
  // minutes on, so the failures above no longer count against the address).
  clock().Set(LocalTime{2024, 4, 1, 10, 25, 31});
  EXPECT_EQ(post("/login", id, "User_cd=sato&User_PS=no"), std::pair(std::string("ERROR:LOGIN"), std::string()));
  EXPECT_EQ(server.state().sessions->Find(id)->Get("PUB_USR_ID"), "yamada");

  // Logging in again replaces the session: the old id is no longer valid.
  auto [answer, cookie] = post("/login", id, "User_cd=sato&User_PS=sato");
  ASSERT_EQ(answer, "OK");
  std::string second = session_id(cookie);
  EXPECT_FALSE(server.state().sessions->Find(id));
  ASSERT_TRUE(server.state().sessions->Find(second));
  EXPECT_EQ(server.state().sessions->Find(second)->Get("PUB_USR_ID"), "sato");
  EXPECT_EQ(server.state().sessions->Find(second)->Get("PUB_SEC_CD"), "");  // no current section

  EXPECT_EQ(post("/logout", second, ""),
            std::pair(std::string("OK"), std::string("ORVANE_SID=; Path=/; HttpOnly; SameSite=Strict; Max-Age=0")));
  EXPECT_FALSE(server.state().sessions->Find(second));

  std::string log = server.Log();
  EXPECT_NE(log.find("POST /login"), std::string::npos) << log;
  for (const char* secret : {"pa'ss", "pa%27ss", "yamada", "wrong", "sato"})
    EXPECT_EQ(log.find(secret), std::string::npos);
}

// Guessing is refused, not slowed: five failures for an id, or from an
// address, within five minutes refuse the next attempts without checking
// the password until the window passes; credentials come from the body only.
TEST_P(Login, GuessingIsRefusedForTheWindowAndCredentialsComeFromTheBody) {
  Insert("T_USER", {{"USER_ID", "sato"}, {"PASSWORD", "sato"}});
  Insert("T_USER", {{"USER_ID", "kato"}, {"PASSWORD", "kato"}});
  LiveServer server(ConfigPath(), clock());
  auto login = [&](const std::string& form) { return server.Call("/login", "", form).substr(4); };
  EXPECT_EQ(server.Call("/login?User_cd=sato&User_PS=sato", "", ""), "200 ERROR:LOGIN");
  for (int i = 0; i < 5; ++i) EXPECT_EQ(login("User_cd=sato&User_PS=guess" + std::to_string(i)), "ERROR:LOGIN");
  EXPECT_EQ(login("User_cd=sato&User_PS=sato"), "ERROR:LOGIN");  // right, but refused for now
  EXPECT_EQ(login("User_cd=kato&User_PS=kato"), "ERROR:LOGIN");  // the same address
  clock().Set(LocalTime{2024, 4, 1, 10, 25, 29});                // 4 min 59 s after the first failure
  EXPECT_EQ(login("User_cd=sato&User_PS=sato"), "ERROR:LOGIN");
  clock().Set(LocalTime{2024, 4, 1, 10, 25, 31});  // the first failures left the window
  EXPECT_EQ(login("User_cd=sato&User_PS=sato"), "OK");
}

// Guessing the administrator's password from one address cannot lock the
// administrator out: after five failures that address waits (the right
// password too), while from another address the right password logs in
// once the id's short delay (at most four seconds) has passed. The audit
// log says which logins were throttled.
TEST_P(Login, GuessingFromOneAddressDoesNotLockTheUserOutElsewhere) {
  Insert("T_USER", {{"USER_ID", "admin"}, {"PASSWORD", "admin"}});
  LiveServer server(ConfigPath(), clock());
  ASSERT_TRUE(server.state().audit_log.Open(dir().File("audit.log")).ok());
  auto login = [&](const char* from, const char* password) {
    httplib::Client client = server.Client();
    client.set_interface(from);  // the loopback address to connect from
    auto res = client.Post("/login", std::string("User_cd=admin&User_PS=") + password, testing::kForm);
    return res ? res->body : std::string("(none)");
  };
  for (int i = 0; i < 5; ++i) EXPECT_EQ(login("127.0.0.1", "guess"), "ERROR:LOGIN");
  EXPECT_EQ(login("127.0.0.2", "admin"), "ERROR:LOGIN");  // within the id's delay
  clock().Set(LocalTime{2024, 4, 1, 10, 20, 34});
  EXPECT_EQ(login("127.0.0.1", "admin"), "ERROR:LOGIN");  // this address still waits
  EXPECT_EQ(login("127.0.0.2", "admin"), "OK");
  std::string clients, events;
  std::ifstream in(dir().File("audit.log"));
  for (std::string line; std::getline(in, line);) {
    auto j = nlohmann::json::parse(line);
    clients += j["client"].get<std::string>().substr(8) + " ";
    events +=
        j["event"].get<std::string>() + (j.contains("throttled") ? "/" + j["throttled"].get<std::string>() : "") + " ";
  }
  EXPECT_EQ(clients, "1 1 1 1 1 2 1 2 ");
  // The third failure starts the id's delay: the fourth and fifth guesses
  // are refused unchecked, and count against the address.
  EXPECT_EQ(events,
            "login-failed login-failed login-failed login-throttled/user-delay login-throttled/user-delay "
            "login-throttled/user-delay login-throttled/address login ");
}

// Over HTTP only administrators (the menu-rights column holding its own
// number) reach /orvane and the drawn tree; with anonymous reads, queries
// are open and changes still need one.
TEST_P(Login, OnlyAdministratorsPassTheEdge) {
  Insert("T_SECTION", {{"SEC_CD", "0001"},
                       {"JOI_SEC", "9999"},
                       {"SEC_NM", "本社"},
                       {"SEC_SEQ", "1"},
                       {"SEC_TREE", "0001"},
                       {"UPD_KBN", "3"}});
  for (auto [id, right] : {std::pair("boss", "50"), std::pair("clerk", "ZZ"), std::pair("other", "51")}) {
    Insert("T_USER", {{"USER_ID", id}, {"PASSWORD", id}});
    Insert("MENU_USER", {{"USER_ID", id}, {"MENU50", right}, {"MENU51", "51"}});
  }
  Insert("T_USER", {{"USER_ID", "norow"}, {"PASSWORD", "norow"}});  // no menu-rights row at all
  const std::string read = "200 0001,本社,,,1,,,", refused = "401 ERROR:SESSIONCHECK",
                    tree = "200 0001\t本社\t\t9999\t1\t0001\t3\t\t\t\t0\t└\r\n";
  struct Case {
    bool open_reads;
    const char* user;                // "" for no login
    std::string read, change, tree;  // of a query, a change (203 of no section) and the drawn tree
  } cases[] = {
      {false, "", refused, refused, refused},
      {false, "clerk", refused, refused, refused},
      {false, "norow", refused, refused, refused},
      {false, "boss", read, "200 OK", tree},
      {true, "", read, refused, tree},
      {true, "clerk", read, refused, tree},
      {true, "boss", read, "200 OK", tree},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.user) + (c.open_reads ? " with anonymous reads" : ""));
    LiveServer server(ConfigPath(), AccessRule{.anonymous_reads = c.open_reads}, clock());
    const std::string cookie = *c.user ? server.LogIn(c.user, c.user) : "";
    ASSERT_EQ(cookie.empty(), !*c.user);
    EXPECT_EQ(server.Call("/orvane?ReqNo=105&Group_cd=0001", cookie), c.read);
    EXPECT_EQ(server.Call("/orvane", cookie, "ReqNo=203&Group_cd=0009"), c.change);
    EXPECT_EQ(server.Call("/application/App_A_strSec_hierarchical", cookie), c.tree);
  }
}

ORVANE_DB_TEST_SUITE(Login);

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
    auto [status, out] = testing::RunBinary("audit --audit-log " + path + " " + q.args);
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
