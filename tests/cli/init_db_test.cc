// `orvane init-db` run as a real process against the fixture's data source.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>

#include "data/schema.h"
#include "data/sql.h"
#include "support/db_fixture.h"

namespace orvane {
namespace {

using data::Sql;
using data::Table;
using testing::Backend;
using testing::Cells;
using testing::DbTest;

// Runs the orvane binary; its exit status and its output (stdout and stderr).
std::pair<int, std::string> RunBinary(const std::string& args) {
  FILE* pipe = popen((std::string(ORVANE_BINARY) + " " + args + " 2>&1").c_str(), "r");
  std::string output;
  char buf[4096];
  for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) output.append(buf, n);
  int status = pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

using InitDb = DbTest;

TEST_P(InitDb, TwiceChangesNothingAndTheDemoIsAddedOnce) {
  std::string backend = GetParam() == Backend::kSqlite ? "SQLite" : "PostgreSQL";
  for (const char* demo : {" --demo", " --demo", ""}) {
    EXPECT_EQ(RunBinary("init-db --config " + ConfigPath() + demo),
              std::pair(0, "orvane init-db: tables ready on data source " + Dsn() + " (" + backend + ")" +
                               (*demo ? ", demo organisation present" : "") + "\n"));
  }

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

TEST_P(InitDb, ReportsAMissingOrUnknownDataSource) {
  WriteConfig("LOCAL_DB_DSN=\n");
  EXPECT_EQ(RunBinary("init-db --config " + ConfigPath()),
            std::pair(1, "orvane init-db: no data source: LOCAL_DB_DSN in " + ConfigPath() + ": 環境ファイル(" +
                             ConfigPath() + ")の\"LOCAL_DB_DSN\"は無効な設定です\n"));
  WriteConfig("LOCAL_DB_DSN=no_such_source\n");
  EXPECT_EQ(RunBinary("init-db --config " + ConfigPath()),
            std::pair(1, std::string("orvane init-db: [Com_funDbOpen]エラー番号 0 [IM002] [unixODBC][Driver "
                                     "Manager]Data source name not found and no default driver specified<BR><BR>SQL : "
                                     "no_such_source\n")));
}

ORVANE_DB_TEST_SUITE(InitDb);

}  // namespace
}  // namespace orvane
