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

using testing::LiveServer;

class Access : public testing::DbTest {
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
};

constexpr char kRead[] = "/orvane?ReqNo=105&Group_cd=0002";
constexpr char kReadAnswer[] = "200 0002,総務部,総務部,B0002,002,,20240401,102030";
constexpr char kTree[] = "/application/App_A_strSec_hierarchical";
constexpr char kChange[] = "ReqNo=210&Group_cd1=0002&Group_cd2=0003&Group_cd3=0000";
constexpr char kRefused[] = "401 ERROR:SESSIONCHECK";

TEST_P(Access, ARevokedRightOrADeletedUserIsRefusedOnTheNextRequestOnEveryInstance) {
  LiveServer first(ConfigPath(), AccessRule{}, DatabaseSessions(), clock());
  LiveServer second(ConfigPath(), AccessRule{}, DatabaseSessions(), clock());
  const std::string admin = first.LogIn("admin", "admin"), yamada = first.LogIn("yamada", "yamada"),
                    sato = second.LogIn("sato", "sato");
  ASSERT_FALSE(admin.empty() || yamada.empty() || sato.empty());
  for (LiveServer* server : {&first, &second}) {
    for (const std::string& cookie : {admin, yamada, sato}) {
      EXPECT_EQ(server->Call(kRead, cookie), kReadAnswer);
      EXPECT_EQ(server->Call(kTree, cookie).substr(0, 3), "200");
    }
  }
  ASSERT_EQ(first.Call("/orvane", admin, "ReqNo=213&User_cd=yamada&User_Menu=%2F01%2F"), "200 OK");
  ASSERT_EQ(second.Call("/orvane", admin, "ReqNo=206&User_cd=sato&Mail_UFL=0"), "200 OK");
  for (LiveServer* server : {&first, &second}) {
    for (const std::string& cookie : {yamada, sato}) {
      EXPECT_EQ(server->Call(kRead, cookie), kRefused);
      EXPECT_EQ(server->Call(kTree, cookie), kRefused);
      EXPECT_EQ(server->Call("/orvane", cookie, kChange), kRefused);
    }
    EXPECT_EQ(server->Call(kRead, admin), kReadAnswer);
  }
  // A right granted again holds again at once, in the same session.
  ASSERT_EQ(second.Call("/orvane", admin, "ReqNo=213&User_cd=yamada&User_Menu=%2F01%2F50%2F"), "200 OK");
  EXPECT_EQ(first.Call(kRead, yamada), kReadAnswer);
  // With anonymous reads a query needs no session and no check; a change
  // of the revoked still does.
  LiveServer open(ConfigPath(), testing::OpenReads(), DatabaseSessions(), clock());
  EXPECT_EQ(open.Call(kRead), kReadAnswer);
  EXPECT_EQ(open.Call("/orvane", sato, kChange), kRefused);
}

TEST_P(Access, APasswordChangeEndsTheUsersOtherSessions) {
  const std::string change = "ReqNo=205&User_cd=yamada&Mail_UFL=0&OldMail_UFL=0&User_PS=";
  for (bool in_database : {false, true}) {
    LiveServer server(
        ConfigPath(), AccessRule{},
        in_database ? DatabaseSessions() : std::make_unique<InMemorySessionStore>(std::chrono::minutes(20)), clock());
    Exec(data::Sql() << "update " << data::Table("T_USER") << " set PASSWORD = " << data::Quoted("yamada")
                     << " where USER_ID = " << data::Quoted("yamada"));
    const std::string admin = server.LogIn("admin", "admin"), mine = server.LogIn("yamada", "yamada"),
                      other = server.LogIn("yamada", "yamada");
    ASSERT_FALSE(admin.empty() || mine.empty() || other.empty());
    // The user's own change keeps the session that made it.
    EXPECT_EQ(server.Call("/orvane", mine, change + "new1"), "200 OK");
    EXPECT_EQ(server.Call(kRead, other), kRefused) << in_database;
    EXPECT_EQ(server.Call(kRead, mine), kReadAnswer) << in_database;
    // An administrator's change of it ends all of them, never the administrator's.
    EXPECT_EQ(server.Call("/orvane", admin, change + "new2"), "200 OK");
    EXPECT_EQ(server.Call(kRead, mine), kRefused) << in_database;
    EXPECT_EQ(server.Call(kRead, admin), kReadAnswer) << in_database;
    EXPECT_FALSE(server.LogIn("yamada", "new2").empty());
  }
}

TEST_P(Access, ACheckTheDatabaseCannotAnswerRefuses) {
  LiveServer server(ConfigPath(), clock());
  const std::string admin = server.LogIn("admin", "admin");
  ASSERT_FALSE(admin.empty());
  WriteConfig("LOCAL_DB_DSN=orvane_no_such_source\n");
  EXPECT_EQ(server.Call(kRead, admin), "503 ERROR:SESSIONCHECK");
  EXPECT_EQ(server.Call(kTree, admin), "503 ERROR:SESSIONCHECK");
  EXPECT_NE(server.Log().find("ReqNo=\"105\" 503"), std::string::npos) << server.Log();
  EXPECT_NE(server.Log().find("ReadAdminRight"), std::string::npos) << server.Log();
}

ORVANE_DB_TEST_SUITE(Access);

}  // namespace
}  // namespace orvane
