// The commands an administrator runs, as real processes: what each refuses
// at start, help, `request`; and on the fixture's data source `init-db`
// (the tables and the demo made once, the password mode recorded),
// `passwords --hash` (which changes it) and `check-data` (what breaks
// today's field rules).
#include <gtest/gtest.h>

#include <chrono>
#include <thread>

#include "base/password_hash.h"
#include "data/password_mode.h"
#include "data/schema.h"
#include "data/sql.h"
#include "support/binary.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using data::Sql;
using data::Table;
using testing::Backend;
using testing::Cells;
using testing::RunBinary;

class InitDb : public testing::DbTest {
 protected:
  std::string Mode() {
    Cells rows = Rows(Sql() << "select SETTING_VALUE from " << Table("ORVANE_SETTING")
                            << " where SETTING_KEY = 'PASSWORD_MODE'");
    return rows.empty() ? "(none)" : rows[0][0];
  }
  // The one value of `column` in the row of `user`.
  std::string Stored(const char* table, const char* column, const char* user) {
    Cells rows = Rows(Sql() << "select " << data::Identifier(column) << " from " << Table(table)
                            << " where USER_ID = " << data::Quoted(user));
    EXPECT_EQ(rows.size(), 1u) << table << " " << user;
    return rows.empty() ? "(none)" : rows[0][0];
  }
  std::string Converted(int t_user, int t_user_work, int t_passgen) {
    return "orvane passwords: converted " + std::to_string(t_user + t_user_work + t_passgen) + " (T_USER " +
           std::to_string(t_user) + ", T_USER_WORK " + std::to_string(t_user_work) + ", T_PASSGEN " +
           std::to_string(t_passgen) + ", T_PASSGEN_WORK 0); password mode argon2id\n";
  }
  std::string Hint() const {
    return "to store argon2id hashes instead run: orvane passwords --hash --config " + ConfigPath() + "\n";
  }
  std::string Ready(const std::string& more = "") const {
    return "orvane init-db: tables ready on data source " + Dsn() + " (" +
           (GetParam() == Backend::kSqlite ? "SQLite" : "PostgreSQL") + ")" + more + "\n";
  }
};

TEST_P(InitDb, TwiceChangesNothingAndTheDemoIsAddedOnce) {
  for (const char* demo : {" --demo", " --demo", ""})
    EXPECT_EQ(RunBinary("init-db --config " + ConfigPath() + demo),
              std::pair(0, Ready(*demo ? ", demo organisation present" : "")));

  // Every table is there, and the demo rows only once.
  for (const data::TableDef& t : data::SchemaTables()) {
    ASSERT_EQ(Rows(Sql() << "select count(*) from " << Table(t.name)).size(), 1u) << t.name;
  }
  EXPECT_EQ(Rows(Sql() << "select USER_ID from " << Table("T_USER") << " order by USER_ID"),
            (Cells{{"admin"}, {"ito"}, {"sato"}, {"tanaka"}, {"watanabe"}, {"yamada"}}));
  EXPECT_EQ(
      Rows(Sql() << "select SEC_CD, JOI_SEC, SEC_TREE from " << Table("T_SECTION_WORK") << " where SEC_CD = '0000'"),
      (Cells{{"0000", "9999", "0000"}}));
  EXPECT_EQ(Rows(Sql() << "select count(*) from " << Table("T_SECTION_WORK")), (Cells{{"6"}}));
  EXPECT_EQ(Rows(Sql() << "select count(*) from " << Table("T_SECMEMBER")), (Cells{{"8"}}));
  EXPECT_EQ(Rows(Sql() << "select VERSION_ID, VERSION from " << Table("ORVANE_TREE_VERSION")), (Cells{{"1", "0"}}));
}

ORVANE_DB_TEST_SUITE(InitDb);

using PasswordCommands = InitDb;

TEST_P(PasswordCommands, InitDbChoosesTheModeOnceAndNeverBackToPlain) {
  const std::string plain = "orvane init-db: password mode plain (passwords kept in clear)\n";
  const std::string init_db = "init-db --config " + ConfigPath();
  EXPECT_EQ(RunBinary(init_db + " --plain-passwords"), std::pair(0, Ready() + plain));
  EXPECT_EQ(Mode(), "plain");
  EXPECT_EQ(RunBinary(init_db), std::pair(0, Ready() + plain + "orvane init-db: " + Hint()));
  EXPECT_EQ(Mode(), "plain");  // recorded: it stays
  EXPECT_EQ(RunBinary("passwords --hash --config " + ConfigPath()).first, 0);
  EXPECT_EQ(RunBinary("init-db --config " + ConfigPath() + " --plain-passwords"),
            std::pair(1, std::string("orvane init-db: the database keeps argon2id hashes, which cannot be turned "
                                     "back into plain passwords\n")));
  EXPECT_EQ(Mode(), "argon2id");
  EXPECT_EQ(RunBinary("passwords --config " + ConfigPath()),
            std::pair(2, std::string("orvane passwords: say what to do: --hash (see orvane passwords --help)\n")));
}

// An upgrade: users in clear and no mode stay plain until the conversion,
// which hashes every stored password once, in place.
TEST_P(PasswordCommands, AnExistingDatabaseStaysPlainUntilConvertedOnce) {
  Insert("T_USER", {{"USER_ID", "u1"}, {"PASSWORD", "pw1"}});
  Insert("T_USER", {{"USER_ID", "u2"}, {"PASSWORD", "p,w 2"}});
  Insert("T_USER", {{"USER_ID", "u3"}, {"PASSWORD", ""}});
  Insert("T_USER", {{"USER_ID", "u4"}, {"PASSWORD", "$argon2id$v=19$m=19456,t=2,p=1$only-looks-like-one"}});
  Insert("T_USER_WORK", {{"USER_ID", "w1"}, {"PASSWORD", "wpw"}});
  Insert("T_PASSGEN", {{"USER_ID", "u1"}, {"GEN01_PASS", "pw1"}, {"GEN02_PASS", "old1"}, {"GEN03_PASS", ""}});
  Insert("T_PASSGEN", {{"USER_ID", "u2"}, {"GEN01_PASS", "p,w 2"}});
  EXPECT_EQ(RunBinary("init-db --config " + ConfigPath()),
            std::pair(0, Ready() + "orvane init-db: password mode plain (passwords kept in clear)\n" +
                             "orvane init-db: the database already had users; " + Hint()));
  EXPECT_EQ(Mode(), "plain");
  EXPECT_EQ(Stored("T_USER", "PASSWORD", "u1"), "pw1");

  EXPECT_EQ(RunBinary("passwords --hash --config " + ConfigPath()), std::pair(0, Converted(3, 1, 3)));
  EXPECT_EQ(Mode(), "argon2id");
  struct Value {
    const char *table, *column, *user;
    const char* password;  // "" : stays empty
  } values[] = {
      {"T_USER", "PASSWORD", "u1", "pw1"},
      {"T_USER", "PASSWORD", "u2", "p,w 2"},
      {"T_USER", "PASSWORD", "u3", ""},
      {"T_USER", "PASSWORD", "u4", "$argon2id$v=19$m=19456,t=2,p=1$only-looks-like-one"},
      {"T_USER_WORK", "PASSWORD", "w1", "wpw"},
      {"T_PASSGEN", "GEN01_PASS", "u1", "pw1"},
      {"T_PASSGEN", "GEN02_PASS", "u1", "old1"},
      {"T_PASSGEN", "GEN03_PASS", "u1", ""},
      {"T_PASSGEN", "GEN01_PASS", "u2", "p,w 2"},
  };
  std::vector<std::string> hashes;
  for (const Value& v : values) {
    SCOPED_TRACE(std::string(v.table) + " " + v.column + " " + v.user);
    hashes.push_back(Stored(v.table, v.column, v.user));
    EXPECT_TRUE(*v.password ? VerifyPassword(hashes.back(), v.password) : hashes.back().empty()) << hashes.back();
  }
  // Again: every value is a hash or empty already.
  EXPECT_EQ(RunBinary("passwords --hash --config " + ConfigPath()), std::pair(0, Converted(0, 0, 0)));
  for (size_t i = 0; i < std::size(values); ++i)
    EXPECT_EQ(Stored(values[i].table, values[i].column, values[i].user), hashes[i]) << values[i].user;
  EXPECT_EQ(RunBinary("init-db --config " + ConfigPath()), std::pair(0, Ready()));
}

// A registration that read the plain mode before the conversion started
// stores its password in clear; the conversion waits for it and converts
// that value too, so nothing in clear is left behind.
TEST_P(PasswordCommands, AConversionWaitsForAWriterThatReadThePlainMode) {
  ASSERT_EQ(RunBinary("init-db --plain-passwords --config " + ConfigPath()).first, 0);
  data::Connection conn;
  ASSERT_TRUE(data::Com_funDbOpen(Dsn(), "", "", conn).ok());
  ASSERT_TRUE(data::Com_funBeginTrans(conn).ok());
  data::PasswordMode mode = data::PasswordMode::kArgon2id;
  ASSERT_TRUE(data::ReadPasswordMode(conn, mode).ok());
  EXPECT_EQ(mode, data::PasswordMode::kPlain);
  std::pair<int, std::string> converted;
  std::thread conversion([&] { converted = RunBinary("passwords --hash --config " + ConfigPath()); });
  std::this_thread::sleep_for(std::chrono::milliseconds(500));
  ASSERT_TRUE(data::Com_funExecsql(conn, Sql() << "insert into " << Table("T_USER") << " (USER_ID, PASSWORD) values "
                                               << "('late', 'late-pw')")
                  .ok());
  ASSERT_TRUE(data::Com_funCommitTrans(conn).ok());
  ASSERT_TRUE(data::Com_funDbClose(conn).ok());
  conversion.join();
  EXPECT_EQ(converted, std::pair(0, Converted(1, 0, 0)));
  EXPECT_TRUE(VerifyPassword(Stored("T_USER", "PASSWORD", "late"), "late-pw"));
}

// A groupware table made with a password column too short for a hash is
// widened by init-db, its values kept (SQLite keeps any length anyway).
TEST_P(PasswordCommands, InitDbWidensAPasswordColumnTooShortForAHash) {
  if (GetParam() == Backend::kSqlite) GTEST_SKIP() << "SQLite does not enforce a column's length";
  Exec(Sql() << "drop table " << Table("T_USER"));
  Exec(Sql() << "create table " << Table("T_USER")
             << " (USER_ID varchar(20) not null primary key, NAME_KJ varchar(40), NAME_KN varchar(40),"
                " PASSWORD varchar(20), MAIL varchar(40), POST_NM varchar(40), DSP_NM varchar(40),"
                " UPD_YMD varchar(8))");
  Insert("T_USER", {{"USER_ID", "u1"}, {"NAME_KJ", "山田"}, {"PASSWORD", "exactly-twenty-chars"}});
  EXPECT_EQ(RunBinary("init-db --config " + ConfigPath()),
            std::pair(0, Ready() + "orvane init-db: widened t_user.password to hold password hashes\n" +
                             "orvane init-db: password mode plain (passwords kept in clear)\n" +
                             "orvane init-db: the database already had users; " + Hint()));
  EXPECT_EQ(Rows(Sql() << "select USER_ID, NAME_KJ, PASSWORD from " << Table("T_USER")),
            (Cells{{"u1", "山田", "exactly-twenty-chars"}}));
  EXPECT_EQ(RunBinary("passwords --hash --config " + ConfigPath()), std::pair(0, Converted(1, 0, 0)));
  EXPECT_TRUE(VerifyPassword(Stored("T_USER", "PASSWORD", "u1"), "exactly-twenty-chars"));
  EXPECT_EQ(RunBinary("init-db --config " + ConfigPath()), std::pair(0, Ready()));  // nothing left to widen
}

ORVANE_DB_TEST_SUITE(PasswordCommands);

using CheckData = InitDb;

// check-data: clean data passes, stored values that today's rules refuse
// are listed (shown safely) and left as they are.
TEST_P(CheckData, ListsStoredValuesThatBreakTheRulesAndChangesNothing) {
  InsertDemo();
  EXPECT_EQ(RunBinary("check-data --config " + ConfigPath()),
            std::pair(0, std::string("orvane check-data: every stored value keeps today's field rules\n")));

  Insert("T_SECTION", {{"SEC_CD", "0100"}, {"JOI_SEC", "0000"}, {"SEC_NM", "営業部, 東京"}, {"DSP_NM", "営"}});
  Insert("T_USER_WORK", {{"USER_ID", "smith"}, {"NAME_KJ", "Smith\tJohn"}, {"EXT_TEL", "内線1"}});
  Insert("T_SECMEMBER",
         {{"SEC_CD", "0004"}, {"USER_ID", "ito"}, {"SEC_KBN", "0"}, {"ST_YMD", "20240401"}, {"ED_YMD", "20240331"}});
  EXPECT_EQ(
      RunBinary("check-data --config " + ConfigPath()),
      std::pair(1, std::string("T_SECTION\t\"SEC_CD=0100\"\tSEC_NM\t\"営業部, 東京\"\tmust not hold a comma\n"
                               "T_USER_WORK\t\"USER_ID=smith\"\tNAME_KJ\t\"Smith\\tJohn\"\tmust not hold a "
                               "control character\n"
                               "T_USER_WORK\t\"USER_ID=smith\"\tEXT_TEL\t\"内線1\"\tmust be at most 32 of digits, "
                               "blanks, \"+\", \"-\", \"(\" and \")\"\n"
                               "T_SECMEMBER\t\"SEC_CD=0004 USER_ID=ito\"\tED_YMD\t\"20240331\"\tthe period ends "
                               "before it starts\n"
                               "orvane check-data: 4 values break today's field rules\n")));
  EXPECT_EQ(Rows(Sql() << "select SEC_NM from " << Table("T_SECTION") << " where SEC_CD = '0100'"),
            (Cells{{"営業部, 東京"}}));
}

ORVANE_DB_TEST_SUITE(CheckData);

TEST(Cli, RequestPrintsTheAnswerExactly) {
  testing::TempDir dir;
  const std::string request = "request --config " + dir.Write("ORVANE.ini", "LOCAL_DB_DSN=\n");
  const std::pair<const char*, std::string> cases[] = {
      {" 'ReqNo=001'", "ERROR:READINFOFILE_SV_FOLDER"},
      {" 'ReqNo=1'", "ERROR:NOREQUESTCODE"},
      {" 'ReqNo=102&S_pos=&B_pos=1'", "ERROR:TYPEMISMATCH S_pos is not a 16-bit integer"},
  };
  for (const auto& [query, out] : cases) EXPECT_EQ(RunBinary(request + query), std::pair(0, out)) << query;
}

TEST(Cli, HelpExplainsEachSubcommand) {
  const std::pair<const char*, const char*> cases[] = {
      {"--help", "serve"},
      {"serve --help", "--listen"},
      {"passwords --help", "converts 0"},
      {"request --help",
       "208  RegistMember (Group_cd [code], User_cd [id], Primary [flag, checked], Post_cd [code, checked], ST_Ymd "
       "[date, checked], ED_Ymd [end date, checked], Upd_Ymd [date], Upd_Hms [free text])"},
      {"check-data --help", "Exit status 0 when none breaks a rule, 1 when some do"},
  };
  for (auto [args, must_contain] : cases) {
    auto [status, out] = RunBinary(args);
    EXPECT_EQ(status, 0) << args;
    EXPECT_NE(out.find(must_contain), std::string::npos) << args << "\n" << out;
  }
  EXPECT_NE(RunBinary("serve --listen nonsense").first, 0);
}

// What cannot work is refused at start with its reason and status 2: no
// configuration file, a data source odbc.ini does not define (by every
// command), a port some other program listens on (never shared).
TEST(Cli, CommandsRefuseToStartWhatCannotWork) {
  testing::TempDir dir;
  std::string undefined = dir.Write("undefined/ORVANE.ini", "LOCAL_DB_DSN=nowhere_defined\n");
  std::string empty = dir.Write("empty/ORVANE.ini", "LOCAL_DB_DSN=\n");
  std::string good = dir.Write("good/ORVANE.ini", "LOCAL_DB_DSN=cli_serve_probe\n");
  dir.Write("good/odbc.ini", "[cli_serve_probe]\nDriver=SQLite3\nDatabase=" + dir.File("good/o.db") + "\n");
  testing::LiveServer taken(empty);
  const std::string listen = "127.0.0.1:" + std::to_string(taken.port());
  std::vector<std::pair<std::string, std::string>> cases = {
      {"serve --config " + good + " --listen " + listen,
       "orvane serve: cannot listen on " + listen + ": Address already in use\n"},
  };
  for (std::string command : {"serve", "request", "init-db", "passwords", "check-data"}) {
    std::string tail = command == "request" ? " ReqNo=101" : command == "passwords" ? " --hash" : "";
    cases.emplace_back(command + " --config " + dir.File("none/ORVANE.ini") + tail,
                       "orvane " + command + ": cannot read the configuration file " + dir.File("none/ORVANE.ini") +
                           ": No such file or directory\n");
    cases.emplace_back(command + " --config " + undefined + tail,
                       "orvane " + command + ": the data source \"nowhere_defined\" (LOCAL_DB_DSN) is not defined in " +
                           dir.File("undefined") + "/odbc.ini or the system's odbc.ini\n");
    if (command != "request")  // a request answers ERROR:READINFOFILE_SV_FOLDER for itself
      cases.emplace_back(command + " --config " + empty + tail,
                         "orvane " + command + ": 環境ファイル(" + empty + ")の\"LOCAL_DB_DSN\"は無効な設定です\n");
  }
  for (const auto& [args, out] : cases) EXPECT_EQ(RunBinary(args), std::pair(2, out)) << args;
}

}  // namespace
}  // namespace orvane
