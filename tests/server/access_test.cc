// Access that follows the data, over real HTTP against a real database: the
// administrator right is read on every request, on every instance sharing
// the database; a password change ends the user's other sessions; a check
// the database cannot answer refuses.
#include <gtest/gtest.h>

#include "server/database_session_store.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using testing::DbTest;
using testing::LiveServer;

class Access : public DbTest {
 protected:
  // The demo organisation, yamada and sato made administrators too.
  void SetUp() override {
    DbTest::SetUp();
    InsertDemo();
    Exec(data::Sql() << "update " << data::Table("MENU_USER") << " set MENU50 = " << data::Quoted("50")
                     << " where USER_ID in (" << data::Quoted("yamada") << "," << data::Quoted("sato") << ")");
  }
  std::unique_ptr<SessionStore> DatabaseSessions() {
    return std::make_unique<DatabaseSessionStore>(ConfigPath(), std::chrono::minutes(20));
  }
  // The session cookie of a login ("" when refused).
  static std::string LogIn(LiveServer& server, const std::string& user, const std::string& password) {
    auto res =
        server.Client().Post("/login", "User_cd=" + user + "&User_PS=" + password, "application/x-www-form-urlencoded");
    return res && res->body == "OK" ? res->get_header_value("Set-Cookie").substr(0, 43) : std::string();
  }
  // "status body" of a request with `cookie`; a form makes it a POST.
  static std::string Call(LiveServer& server, const std::string& cookie, const std::string& target,
                          const std::string& form = "") {
    httplib::Headers headers = {{"Cookie", cookie}};
    auto client = server.Client();
    auto res = form.empty() ? client.Get(target, headers)
                            : client.Post(target, headers, form, "application/x-www-form-urlencoded");
    return res ? std::to_string(res->status) + " " + res->body : std::string("(no answer)");
  }
};

constexpr char kRead[] = "/orvane?ReqNo=105&Group_cd=0002";
constexpr char kReadAnswer[] = "200 0002,総務部,総務部,B0002,002,,20240401,102030";
constexpr char kTree[] = "/application/App_A_strSec_hierarchical";
constexpr char kRefused[] = "401 ERROR:SESSIONCHECK";

TEST_P(Access, ARevokedRightOrADeletedUserIsRefusedOnTheNextRequestOnEveryInstance) {
  LiveServer first(ConfigPath(), AccessRule{}, DatabaseSessions(), clock());
  LiveServer second(ConfigPath(), AccessRule{}, DatabaseSessions(), clock());
  const std::string admin = LogIn(first, "admin", "admin"), yamada = LogIn(first, "yamada", "yamada"),
                    sato = LogIn(second, "sato", "sato");
  ASSERT_FALSE(admin.empty() || yamada.empty() || sato.empty());
  for (LiveServer* server : {&first, &second}) {
    for (const std::string& cookie : {admin, yamada, sato}) {
      EXPECT_EQ(Call(*server, cookie, kRead), kReadAnswer);
      EXPECT_EQ(Call(*server, cookie, kTree).substr(0, 3), "200");
    }
  }
  ASSERT_EQ(Call(first, admin, "/orvane", "ReqNo=213&User_cd=yamada&User_Menu=%2F01%2F"), "200 OK");
  ASSERT_EQ(Call(second, admin, "/orvane", "ReqNo=206&User_cd=sato&Mail_UFL=0"), "200 OK");
  for (LiveServer* server : {&first, &second}) {
    for (const std::string& cookie : {yamada, sato}) {
      EXPECT_EQ(Call(*server, cookie, kRead), kRefused);
      EXPECT_EQ(Call(*server, cookie, kTree), kRefused);
      EXPECT_EQ(Call(*server, cookie, "/orvane", "ReqNo=210&Group_cd1=0002&Group_cd2=0003&Group_cd3=0000"), kRefused);
    }
    EXPECT_EQ(Call(*server, admin, kRead), kReadAnswer);
  }
  // A right granted again holds again at once, in the same session.
  ASSERT_EQ(Call(second, admin, "/orvane", "ReqNo=213&User_cd=yamada&User_Menu=%2F01%2F50%2F"), "200 OK");
  EXPECT_EQ(Call(first, yamada, kRead), kReadAnswer);
  // With anonymous reads a query needs no session and no check; a change
  // of the revoked still does.
  LiveServer open(ConfigPath(), AccessRule{.anonymous_reads = true}, DatabaseSessions(), clock());
  EXPECT_EQ(Call(open, "", kRead), kReadAnswer);
  EXPECT_EQ(Call(open, sato, "/orvane", "ReqNo=210&Group_cd1=0002&Group_cd2=0003&Group_cd3=0000"), kRefused);
}

TEST_P(Access, APasswordChangeEndsTheUsersOtherSessions) {
  const std::string change = "ReqNo=205&User_cd=yamada&Mail_UFL=0&OldMail_UFL=0&User_PS=";
  for (bool in_database : {false, true}) {
    LiveServer server(
        ConfigPath(), AccessRule{},
        in_database ? DatabaseSessions() : std::make_unique<InMemorySessionStore>(std::chrono::minutes(20)), clock());
    Exec(data::Sql() << "update " << data::Table("T_USER") << " set PASSWORD = " << data::Quoted("yamada")
                     << " where USER_ID = " << data::Quoted("yamada"));
    const std::string admin = LogIn(server, "admin", "admin"), mine = LogIn(server, "yamada", "yamada"),
                      other = LogIn(server, "yamada", "yamada");
    ASSERT_FALSE(admin.empty() || mine.empty() || other.empty());
    // The user's own change keeps the session that made it.
    EXPECT_EQ(Call(server, mine, "/orvane", change + "new1"), "200 OK");
    EXPECT_EQ(Call(server, other, kRead), kRefused) << in_database;
    EXPECT_EQ(Call(server, mine, kRead), kReadAnswer) << in_database;
    // An administrator's change of it ends all of them, never the administrator's.
    EXPECT_EQ(Call(server, admin, "/orvane", change + "new2"), "200 OK");
    EXPECT_EQ(Call(server, mine, kRead), kRefused) << in_database;
    EXPECT_EQ(Call(server, admin, kRead), kReadAnswer) << in_database;
    EXPECT_FALSE(LogIn(server, "yamada", "new2").empty());
  }
}

TEST_P(Access, ACheckTheDatabaseCannotAnswerRefuses) {
  LiveServer server(ConfigPath(), clock());
  const std::string admin = LogIn(server, "admin", "admin");
  ASSERT_FALSE(admin.empty());
  WriteConfig("LOCAL_DB_DSN=orvane_no_such_source\n");
  EXPECT_EQ(Call(server, admin, kRead), "503 ERROR:SESSIONCHECK");
  EXPECT_EQ(Call(server, admin, kTree), "503 ERROR:SESSIONCHECK");
  const std::string log = server.Log();
  EXPECT_NE(log.find("ReqNo=\"105\" 503"), std::string::npos) << log;
  EXPECT_NE(log.find("ReadAdminRight"), std::string::npos) << log;
}

ORVANE_DB_TEST_SUITE(Access);

}  // namespace
}  // namespace orvane
