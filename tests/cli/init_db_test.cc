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

TEST_P(InitDb, TheLargeDemoComesBehindTheSmallOneAsATreeOnce) {
  for (int run = 0; run < 2; ++run)
    ASSERT_EQ(RunBinary("init-db --demo --large-demo --config " + ConfigPath()).first, 0);
  for (const char* suffix : {"", "_WORK"}) {
    const std::string s(suffix);
    EXPECT_EQ(Rows(Sql() << "select count(*) from " << Table("T_SECTION" + s)), (Cells{{"306"}})) << s;
    EXPECT_EQ(Rows(Sql() << "select count(*) from " << Table("T_USER" + s)), (Cells{{"3006"}})) << s;
    EXPECT_EQ(Rows(Sql() << "select count(*) from " << Table("MENU_USER" + s)), (Cells{{"3006"}})) << s;
    EXPECT_EQ(Rows(Sql() << "select count(*) from " << Table("T_SECMEMBER" + s)), (Cells{{"3008"}})) << s;
    // Every group but the top has its parent; every member its group.
    EXPECT_EQ(Rows(Sql() << "select S.SEC_CD from " << Table("T_SECTION" + s) << " S left join "
                         << Table("T_SECTION" + s) << " P on P.SEC_CD = S.JOI_SEC where P.SEC_CD is null"),
              (Cells{{"0000"}}));
    EXPECT_EQ(Rows(Sql() << "select count(*) from " << Table("T_SECMEMBER" + s) << " M left join "
                         << Table("T_SECTION" + s) << " S on S.SEC_CD = M.SEC_CD where S.SEC_CD is null"),
              (Cells{{"0"}}));
  }
  EXPECT_EQ(Rows(Sql() << "select SEC_NM, SEC_TREE, TREE_NM from " << Table("T_SECTION") << " where SEC_CD = '0102'"),
            (Cells{{"営業第一部企画課", "0000/0100/0101/0102", "/ 営業本部 / 営業第一部 / 営業第一部企画課"}}));
  EXPECT_EQ(Rows(Sql() << "select NAME_KJ, NAME_KN, MAIL from " << Table("T_USER") << " where USER_ID = 'u0001'"),
            (Cells{{"山口 由美", "ヤマグチ ユミ", "u0001@example.jp"}}));
}

ORVANE_DB_TEST_SUITE(InitDb);

}  // namespace
}  // namespace orvane
