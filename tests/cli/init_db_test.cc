// `orvane init-db` run as a real process against the fixture's data source.
#include <gtest/gtest.h>


#include "data/schema.h"
#include "data/sql.h"
#include "support/binary.h"
#include "support/db_fixture.h"

namespace orvane {
namespace {

using data::Sql;
using data::Table;
using testing::Backend;
using testing::Cells;
using testing::DbTest;
using testing::RunBinary;

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

ORVANE_DB_TEST_SUITE(InitDb);

}  // namespace
}  // namespace orvane
