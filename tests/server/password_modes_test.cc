// The password modes over real HTTP on a database that `orvane init-db`
// prepared: what is stored, who logs in, what 106, 205 and the session keep.
#include <gtest/gtest.h>

#include "base/password_hash.h"
#include "data/sql.h"
#include "support/binary.h"
#include "support/db_fixture.h"
#include "support/exe_proxy_peer.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using data::Quoted;
using data::Sql;
using data::Table;
using testing::Cells;
using testing::LiveServer;
using testing::RunBinary;

class PasswordModes : public testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    WriteConfig("ML_MODE=0\n");  // no mail server unless a case says so: the rows are the point
  }
  // PASSWORD and PASSWORD_YMD of the user row, GEN01_PASS of T_PASSGEN.
  std::vector<std::string> Stored(const std::string& id) {
    Cells user =
        Rows(Sql() << "select PASSWORD, PASSWORD_YMD from " << Table("T_USER") << " where USER_ID = " << Quoted(id));
    Cells gen = Rows(Sql() << "select GEN01_PASS from " << Table("T_PASSGEN") << " where USER_ID = " << Quoted(id));
    return {user.empty() ? "-" : user[0][0], user.empty() ? "-" : user[0][1], gen.empty() ? "-" : gen[0][0]};
  }
};

TEST_P(PasswordModes, Argon2idStoresHashesChecksThemInTheServerAndAnswersNoPassword) {
  ASSERT_EQ(RunBinary("init-db --demo --config " + ConfigPath()).first, 0);
  EXPECT_EQ(
      Rows(Sql() << "select SETTING_VALUE from " << Table("ORVANE_SETTING") << " where SETTING_KEY = 'PASSWORD_MODE'"),
      (Cells{{"argon2id"}}));
  LiveServer server(ConfigPath(), clock());
  auto login = [&](const std::string& id, const std::string& password) {  // the form encoded by the client
    auto res = server.Client().Post("/login", httplib::Params{{"User_cd", id}, {"User_PS", password}});
    return res ? res->body : "(none)";
  };

  // The demo's administrator was hashed by init-db; its session holds no password.
  const std::string admin_hash = Stored("admin")[0];
  EXPECT_TRUE(admin_hash.starts_with("$argon2id$v=19$m=19456,t=2,p=1$")) << admin_hash;
  const std::string cookie = server.LogIn("admin", "admin");
  std::shared_ptr<Session> session = server.state().sessions->Find(cookie.substr(11));
  ASSERT_TRUE(session);
  EXPECT_EQ(session->Get("PUB_USR_ID"), "admin");
  EXPECT_EQ(session->Get("PUB_USR_PW"), "");
  for (const auto& [name, value] : session->Values()) EXPECT_FALSE(value.starts_with("$argon2id")) << name;

  // 204 stores a hash in the user row and in the password history.
  EXPECT_EQ(server.Call("/orvane", cookie,
                        "ReqNo=204&User_cd=kimura&User_KJ=木村&User_KN=キムラ&User_PS=pw-kimura&Mail_AD=k.kimura"
                        "&Mail_FL=0&Ext_TEL=555&Post_NM=係長&Disp_NM=木村&Mail_UFL=0&Mail_NM=Kimura"),
            "200 OK");
  std::vector<std::string> first = Stored("kimura");
  EXPECT_TRUE(IsPasswordHash(first[0]) && IsPasswordHash(first[2])) << first[0] << " " << first[2];
  EXPECT_TRUE(VerifyPassword(first[0], "pw-kimura") && VerifyPassword(first[2], "pw-kimura"));
  EXPECT_EQ(first[1], "20240401");

  // 106 answers every column but the password.
  EXPECT_EQ(server.Call("/orvane?ReqNo=106&User_cd=kimura", cookie),
            "200 kimura,木村,キムラ,,k.kimura,0,555,係長,木村,0,3,Kimura");

  // Login checks the hash in the server: the hash itself, empty and wrong
  // passwords fail, the right one passes once the user's short delay after
  // failures is over. (Three failures: under the address's throttle.)
  for (const std::string& wrong : {first[0], std::string(), std::string("pw-kimurA")})
    EXPECT_EQ(login("kimura", wrong), "ERROR:LOGIN") << wrong;
  clock().Set(LocalTime{2024, 4, 1, 10, 25, 0});
  EXPECT_EQ(login("kimura", "pw-kimura"), "OK");

  // 205 with an empty password keeps the stored one and its date; a
  // password replaces it.
  clock().Set(LocalTime{2024, 5, 2, 9, 0, 0});
  const std::string change =
      "ReqNo=205&User_cd=kimura&User_KJ=木村 一&User_KN=キムラ&Mail_AD=k.kimura&Mail_FL=0"
      "&Ext_TEL=556&Post_NM=係長&Disp_NM=木村&Mail_UFL=0&OldMail_UFL=0&Mail_NM=Kimura&User_PS=";
  EXPECT_EQ(server.Call("/orvane", cookie, change), "200 OK");
  EXPECT_EQ(Stored("kimura"), first);
  EXPECT_EQ(Rows(Sql() << "select NAME_KJ, EXT_TEL from " << Table("T_USER") << " where USER_ID = 'kimura'"),
            (Cells{{"木村 一", "556"}}));
  EXPECT_EQ(login("kimura", "pw-kimura"), "OK");

  EXPECT_EQ(server.Call("/orvane", cookie, change + "new%2Cpw"), "200 OK");
  std::vector<std::string> second = Stored("kimura");
  EXPECT_TRUE(VerifyPassword(second[0], "new,pw")) << second[0];
  EXPECT_EQ(second[1], "20240502");
  EXPECT_EQ(second[2], first[2]);  // the history is the groupware's to move on
  EXPECT_EQ(login("kimura", "new,pw"), "OK");
  EXPECT_EQ(login("kimura", "pw-kimura"), "ERROR:LOGIN");
  EXPECT_EQ(server.Log().find("new,pw"), std::string::npos);
}

// The mail server still gets a typed password in clear; a change that
// keeps the stored password tells the account nothing.
TEST_P(PasswordModes, TheMailServerGetsTypedPasswordsAndNothingWhenOneIsKept) {
  ASSERT_EQ(RunBinary("init-db --demo --config " + ConfigPath()).first, 0);
  const std::string mail = dir().File("mail");
  testing::ExeProxyPeer peer(mail, mail + "\\");
  peer.QueueSpexeReplies(std::vector<std::string>(10, "OK: deleted added"));
  WriteConfig(peer.Ini());
  LiveServer server(ConfigPath(), clock());
  const std::string cookie = server.LogIn("admin", "admin");
  auto spexe = [&](const std::string& command) { return "SPEXE " + mail + "\\" + command + "\r\nQUIT\r\n"; };
  struct Step {
    std::string form;
    std::vector<std::string> sent;
  } steps[] = {
      {"ReqNo=204&User_cd=kimura&User_PS=pw1&Mail_UFL=1", {spexe("adduser.exe -u kimura -p pw1")}},
      {"ReqNo=205&User_cd=kimura&User_PS=&Mail_UFL=1&OldMail_UFL=1", {}},
      {"ReqNo=205&User_cd=kimura&User_PS=pw2&Mail_UFL=1&OldMail_UFL=1", {spexe("adduser.exe -m kimura -p pw2")}},
  };
  for (const Step& s : steps) {
    EXPECT_EQ(server.Call("/orvane", cookie, s.form), "200 OK") << s.form;
    EXPECT_EQ(peer.Transcripts(), s.sent) << s.form;
  }
  EXPECT_TRUE(VerifyPassword(Stored("kimura")[0], "pw2"));
}

// In the plain mode (no mode recorded, as every database before) the
// stored password is compared and answered as it always was; only an
// empty password is never a login, whatever is stored.
TEST_P(PasswordModes, PlainKeepsTodaysAnswersButAnEmptyPasswordNeverLogsIn) {
  Insert("T_USER", {{"USER_ID", "boss"}, {"PASSWORD", "boss-pw"}, {"NAME_KJ", "上司"}});
  Insert("MENU_USER", {{"USER_ID", "boss"}, {"MENU50", "50"}});
  Insert("T_USER", {{"USER_ID", "blank"}, {"PASSWORD", ""}});
  LiveServer server(ConfigPath(), clock());
  for (const char* form : {"User_cd=blank&User_PS=", "User_cd=blank"})
    EXPECT_EQ(server.Call("/login", "", form), "200 ERROR:LOGIN") << form;
  const std::string cookie = server.LogIn("boss", "boss-pw");
  EXPECT_EQ(server.state().sessions->Find(cookie.substr(11))->Get("PUB_USR_PW"), "boss-pw");
  EXPECT_EQ(server.Call("/orvane?ReqNo=106&User_cd=boss", cookie), "200 boss,上司,,boss-pw,,,,,,,,");
  EXPECT_EQ(server.Call("/orvane", cookie, "ReqNo=205&User_cd=blank&User_PS="), "200 OK");
  EXPECT_EQ(Stored("blank"), (std::vector<std::string>{"", "20240401", "-"}));
}

ORVANE_DB_TEST_SUITE(PasswordModes);

}  // namespace
}  // namespace orvane
