// Sessions and rights shared by every instance on one database, on a real
// SQLite and PostgreSQL: DatabaseSessionStore's rows (what a row holds, when
// it is written, when a session ends), and over real HTTP access that
// follows the data: the administrator right read on every request on every
// instance, a password change ending the user's other sessions, a check the
// database cannot answer refusing.
#include <gtest/gtest.h>

#include "server/database_session_store.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using data::Sql;
using data::Table;
using testing::Cells;
using testing::DbTest;
using testing::LiveServer;
using Time = std::chrono::system_clock::time_point;

class DatabaseSessions : public DbTest {
 protected:
  // A store of one instance, on the fixture's database and this fake clock.
  std::unique_ptr<DatabaseSessionStore> Instance() {
    return std::make_unique<DatabaseSessionStore>(ConfigPath(), std::chrono::minutes(20), [this] { return now_; });
  }
  void Advance(std::chrono::seconds s) { now_ += s; }
  // LAST_USED and EXPIRES as seconds after the start of the case.
  Cells Times() {
    Cells rows = Rows(Sql() << "select LAST_USED, EXPIRES from " << Table("ORVANE_SESSION") << " order by EXPIRES");
    for (auto& row : rows)
      for (auto& cell : row) cell = std::to_string(std::stoll(cell) - kStart);
    return rows;
  }
  static constexpr long long kStart = 1711934430;  // 2024-04-01 01:20:30 UTC

 private:
  Time now_ = Time(std::chrono::seconds(kStart));
};

TEST_P(DatabaseSessions, ValuesRoundTripAndOnlyTheIdsHashIsStored) {
  EXPECT_EQ(DatabaseSessionStore::HashId("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
  auto first = Instance(), second = Instance();
  std::string id;
  std::shared_ptr<Session> made = first->Create(id);
  const std::pair<const char*, const char*> values[] = {
      {"PUB_USR_ID", "admin"},
      {"PUB_USR_NM", "山田 太郎"},
      {"PUB_USR_PW", "a&b=c%d+e f"},
      {"PUB_SEC_TREE", "0000/0002"},
      {"ORVANE_MEMBERS_YMD", "20240401"},
      {"PUB_MAIL", "line\r\nbreak;'\""},
      {"PUB_SEC_CD", ""},
  };
  for (auto [name, value] : values) made->Set(name, value);
  ASSERT_TRUE(first->Keep(id, made).ok());
  std::shared_ptr<Session> found = second->Find(id);  // another instance
  ASSERT_TRUE(found);
  for (auto [name, value] : values) EXPECT_EQ(found->Get(name), value) << name;

  Cells rows =
      Rows(Sql() << "select SESSION_HASH, SESSION_VALUES, LAST_USED, EXPIRES from " << Table("ORVANE_SESSION"));
  ASSERT_EQ(rows.size(), 1u);
  EXPECT_EQ(rows[0][0], DatabaseSessionStore::HashId(id));
  for (const std::string& cell : rows[0]) EXPECT_EQ(cell.find(id), std::string::npos) << cell;

  // Ids that are not ours find nothing (and are never looked up).
  for (std::string other : {std::string(), std::string("x"), id.substr(1), DatabaseSessionStore::HashId(id),
                            std::string(32, 'A'), std::string(id).replace(0, 1, "'")})
    EXPECT_FALSE(second->Find(other)) << other;
}

// 20 minutes idle timeout: the last use is written when a value changed or
// when the stored one is a minute old, and the session ends 21 minutes
// after the last written use (never before 20 minutes of idleness).
TEST_P(DatabaseSessions, WritesOnlyWhatChangedAndEndsAfterTheIdleTimeout) {
  auto store = Instance();
  std::string id;
  auto made = store->Create(id);
  made->Set("PUB_USR_ID", "admin");
  ASSERT_TRUE(store->Keep(id, made).ok());
  struct Step {
    int advance_seconds;
    const char* set_members_ymd;  // null: the request changes nothing
    bool found;
    Cells times;  // LAST_USED, EXPIRES after the request
  } steps[] = {
      {0, nullptr, true, {{"0", "1260"}}},       {59, nullptr, true, {{"0", "1260"}}},  // a read: no write
      {0, "20240401", true, {{"59", "1319"}}},    // a changed value is written, with the use
      {0, "20240401", true, {{"59", "1319"}}},    // the same value again: no write
      {60, nullptr, true, {{"119", "1379"}}},     // a minute since the last written use
      {1259, nullptr, true, {{"1378", "2638"}}},  // 20 min 59 s idle: still there
      {2638 - 1378, nullptr, false, {}},          // 21 minutes: gone, and its row with it
  };
  for (const Step& step : steps) {
    SCOPED_TRACE(step.advance_seconds);
    Advance(std::chrono::seconds(step.advance_seconds));
    std::shared_ptr<Session> s = store->Find(id);
    EXPECT_EQ(bool(s), step.found);
    if (s) {
      EXPECT_EQ(s->Get("PUB_USR_ID"), "admin");
      if (step.set_members_ymd) s->Set("ORVANE_MEMBERS_YMD", step.set_members_ymd);
      ASSERT_TRUE(store->Keep(id, s).ok());
    }
    EXPECT_EQ(Times(), step.times);
  }
}

TEST_P(DatabaseSessions, LogoutOnOneInstanceEndsTheSessionOnAll) {
  auto first = Instance(), second = Instance();
  std::string id;
  auto made = first->Create(id);
  made->Set("PUB_USR_ID", "admin");
  ASSERT_TRUE(first->Keep(id, made).ok());
  std::shared_ptr<Session> in_flight = first->Find(id);  // a request still running on the first
  ASSERT_TRUE(in_flight);
  second->Remove(id);
  in_flight->Set("ORVANE_MEMBERS_YMD", "20240401");
  ASSERT_TRUE(first->Keep(id, in_flight).ok());  // writes nothing back to life
  EXPECT_FALSE(first->Find(id));
  EXPECT_EQ(Rows(Sql() << "select count(*) from " << Table("ORVANE_SESSION")), (Cells{{"0"}}));
}

// Expired rows nobody asks for again are taken away by later logins, at
// most a hundred each, through the expiry index.
TEST_P(DatabaseSessions, LoginsRemoveExpiredRows) {
  auto store = Instance();
  for (int i = 0; i < 3; ++i) {
    std::string id;
    ASSERT_TRUE(store->Keep(id, store->Create(id)).ok());
  }
  Advance(std::chrono::minutes(10));
  std::string live;
  ASSERT_TRUE(store->Keep(live, store->Create(live)).ok());
  Advance(std::chrono::minutes(12));  // the first three expired, the fourth not
  EXPECT_EQ(Rows(Sql() << "select count(*) from " << Table("ORVANE_SESSION")), (Cells{{"4"}}));
  std::string id;
  ASSERT_TRUE(store->Keep(id, store->Create(id)).ok());
  EXPECT_EQ(Times(), (Cells{{"600", "1860"}, {"1320", "2580"}}));
  EXPECT_TRUE(store->Find(live));
}

// A password change ends the user's sessions but one, in either store, and
// only that user's: ids that a LIKE pattern would also match stay.
TEST_P(DatabaseSessions, RemovingAUsersSessionsKeepsOneAndTouchesNoOtherUser) {
  std::unique_ptr<SessionStore> stores[] = {Instance(),
                                            std::make_unique<InMemorySessionStore>(std::chrono::minutes(20))};
  // Whose session, and whether it ends; the third is the one kept.
  const std::pair<const char*, bool> cases[] = {
      {"a_b", true},    {"a_b", true},  {"a_b", false},   {"axb", false}, {"a_b2", false},
      {"x a_b", false}, {"A_B", false}, {"山田%", false}, {"", false},
  };
  for (auto& store : stores) {
    std::vector<std::string> ids;
    for (auto [user, ends] : cases) {
      auto made = store->Create(ids.emplace_back());
      if (*user) made->Set("PUB_USR_ID", user);
      made->Set("PUB_USR_NM", "a_b");
      ASSERT_TRUE(store->Keep(ids.back(), made).ok());
    }
    ASSERT_TRUE(store->RemoveUserSessions("a_b", ids[2]).ok());
    ASSERT_TRUE(store->RemoveUserSessions("山田", "").ok());
    for (size_t i = 0; i < ids.size(); ++i)
      EXPECT_EQ(store->Find(ids[i]) == nullptr, cases[i].second) << cases[i].first << " " << i;
  }
}

ORVANE_DB_TEST_SUITE(DatabaseSessions);

class Access : public testing::DbTest {
 protected:
  // The demo organisation, yamada and sato made administrators too.
  void SetUp() override {
    DbTest::SetUp();
    InsertDemo();
    Exec(Sql() << "update " << Table("MENU_USER") << " set MENU50 = " << data::Quoted("50") << " where USER_ID in ("
               << data::Quoted("yamada") << "," << data::Quoted("sato") << ")");
  }
  std::unique_ptr<SessionStore> SharedSessions() {
    return std::make_unique<DatabaseSessionStore>(ConfigPath(), std::chrono::minutes(20));
  }
};

constexpr char kRead[] = "/orvane?ReqNo=105&Group_cd=0002";
constexpr char kReadAnswer[] = "200 0002,総務部,総務部,B0002,002,,20240401,102030";
constexpr char kTree[] = "/application/App_A_strSec_hierarchical";
constexpr char kChange[] = "ReqNo=210&Group_cd1=0002&Group_cd2=0003&Group_cd3=0000";
constexpr char kRefused[] = "401 ERROR:SESSIONCHECK";

TEST_P(Access, ARevokedRightOrADeletedUserIsRefusedOnTheNextRequestOnEveryInstance) {
  LiveServer first(ConfigPath(), AccessRule{}, SharedSessions(), clock());
  LiveServer second(ConfigPath(), AccessRule{}, SharedSessions(), clock());
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
}

TEST_P(Access, APasswordChangeEndsTheUsersOtherSessions) {
  const std::string change = "ReqNo=205&User_cd=yamada&Mail_UFL=0&OldMail_UFL=0&User_PS=";
  for (bool in_database : {false, true}) {
    LiveServer server(ConfigPath(), AccessRule{},
                      in_database ? SharedSessions() : std::make_unique<InMemorySessionStore>(std::chrono::minutes(20)),
                      clock());
    Exec(Sql() << "update " << Table("T_USER") << " set PASSWORD = " << data::Quoted("yamada")
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
