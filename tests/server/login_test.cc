// POST /login and /logout over real HTTP against a real database.
#include <gtest/gtest.h>

#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using testing::DbTest;
using testing::LiveServer;

class Login : public DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    Insert("T_USER", {{"USER_ID", "yamada"}, {"PASSWORD", "pa'ss"}, {"NAME_KJ", "山田 太郎"}, {"MAIL", "t.yamada"}});
    Insert("T_USER", {{"USER_ID", "sato"}, {"PASSWORD", "sato"}, {"NAME_KJ", "佐藤"}});
    for (const char* code : {"0001", "0002", "0003"}) {
      std::string c = code;
      Insert(
          "T_SECTION",
          {{"SEC_CD", c}, {"SEC_NM", "課" + c}, {"DSP_NM", "表示" + c}, {"SEC_TREE", "0000/" + c}, {"UPD_KBN", "3"}});
    }
    // Current on 2024-04-01: 0002 (primary) and 0001; 0003 ended before.
    Insert(
        "T_SECMEMBER",
        {{"SEC_CD", "0001"}, {"USER_ID", "yamada"}, {"SEC_KBN", "0"}, {"ST_YMD", "20200101"}, {"ED_YMD", "99999999"}});
    Insert(
        "T_SECMEMBER",
        {{"SEC_CD", "0002"}, {"USER_ID", "yamada"}, {"SEC_KBN", "1"}, {"ST_YMD", "20240401"}, {"ED_YMD", "99999999"}});
    Insert(
        "T_SECMEMBER",
        {{"SEC_CD", "0003"}, {"USER_ID", "yamada"}, {"SEC_KBN", "1"}, {"ST_YMD", "20200101"}, {"ED_YMD", "20240331"}});
  }

  static std::string SessionIdFrom(const httplib::Result& res) {
    std::string cookie = res->get_header_value("Set-Cookie");
    std::string prefix = "ORVANE_SID=";
    if (cookie.rfind(prefix, 0) != 0) return "";
    return cookie.substr(prefix.size(), cookie.find(';') - prefix.size());
  }
};

TEST_P(Login, RightAndWrongPasswords) {
  LiveServer server(ConfigPath(), clock());
  auto client = server.Client();
  struct Case {
    const char* form;
    const char* answer;
  } cases[] = {
      {"User_cd=yamada&User_PS=pa%27ss", "OK"},
      {"User_cd=yamada&User_PS=wrong", "ERROR:LOGIN"},
      {"User_cd=yamada&User_PS=%27%20or%20%271%27%3D%271", "ERROR:LOGIN"},  // ' or '1'='1
      {"User_cd=nobody&User_PS=pa%27ss", "ERROR:LOGIN"},
      {"User_cd=&User_PS=", "ERROR:LOGIN"},
  };
  for (const Case& c : cases) {
    auto res = client.Post("/login", c.form, "application/x-www-form-urlencoded");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->body, c.answer) << c.form;
    EXPECT_EQ(res->has_header("Set-Cookie"), std::string(c.answer) == "OK") << c.form;
  }
  std::string log = server.Log();
  EXPECT_NE(log.find("POST /login"), std::string::npos) << log;
  for (const char* secret : {"pa'ss", "pa%27ss", "yamada", "wrong"}) EXPECT_EQ(log.find(secret), std::string::npos);
}

TEST_P(Login, TheSessionCookieRoundTrip) {
  LiveServer server(ConfigPath(), clock());
  auto client = server.Client();
  auto res = client.Post("/login", "User_cd=yamada&User_PS=pa%27ss", "application/x-www-form-urlencoded");
  ASSERT_TRUE(res);
  ASSERT_EQ(res->body, "OK");
  std::string id = SessionIdFrom(res);
  ASSERT_EQ(id.size(), 32u);
  EXPECT_EQ(res->get_header_value("Set-Cookie"), "ORVANE_SID=" + id + "; Path=/; HttpOnly; SameSite=Strict");

  std::shared_ptr<Session> session = server.state().sessions->Find(id);
  ASSERT_TRUE(session);
  struct Value {
    const char* name;
    const char* value;
  } values[] = {
      {"PUB_USR_ID", "yamada"}, {"PUB_USR_PW", "pa'ss"},  {"PUB_USR_NM", "山田 太郎"}, {"PUB_MAIL", "t.yamada"},
      {"PUB_SEC_CD", "0002"},   {"PUB_SEC_NM", "課0002"}, {"PUB_DSP_NM", "表示0002"},  {"PUB_SEC_TREE", "0000/0002"},
  };
  for (const Value& v : values) EXPECT_EQ(session->Get(v.name), v.value) << v.name;

  // A failed login with the cookie leaves that session as it was.
  httplib::Headers with_cookie = {{"Cookie", "ORVANE_SID=" + id}};
  res = client.Post("/login", with_cookie, "User_cd=sato&User_PS=no", "application/x-www-form-urlencoded");
  EXPECT_EQ(res->body, "ERROR:LOGIN");
  EXPECT_EQ(server.state().sessions->Find(id)->Get("PUB_USR_ID"), "yamada");

  // Logging in again replaces the session: the old id is no longer valid.
  res = client.Post("/login", with_cookie, "User_cd=sato&User_PS=sato", "application/x-www-form-urlencoded");
  EXPECT_EQ(res->body, "OK");
  std::string second = SessionIdFrom(res);
  EXPECT_NE(second, id);
  EXPECT_FALSE(server.state().sessions->Find(id));
  EXPECT_EQ(server.state().sessions->Find(second)->Get("PUB_USR_ID"), "sato");
  EXPECT_EQ(server.state().sessions->Find(second)->Get("PUB_SEC_CD"), "");  // no current section

  res = client.Post("/logout", {{"Cookie", "ORVANE_SID=" + second}}, "", "application/x-www-form-urlencoded");
  EXPECT_EQ(res->body, "OK");
  EXPECT_EQ(res->get_header_value("Set-Cookie"), "ORVANE_SID=; Path=/; HttpOnly; SameSite=Strict; Max-Age=0");
  EXPECT_FALSE(server.state().sessions->Find(second));
}

ORVANE_DB_TEST_SUITE(Login);

}  // namespace
}  // namespace orvane
