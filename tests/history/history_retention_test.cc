// Retention: the period read from ORVANE.ini, and a purge that keeps every
// entry inside it (the one exactly at the cutoff too) with its images,
// on a real SQLite and PostgreSQL database.
#include "history/history_retention.h"

#include <gtest/gtest.h>

#include "base/text.h"
#include "support/db_fixture.h"

namespace orvane::history {
namespace {

using data::Table;

using HistoryRetention = orvane::testing::DbTest;

TEST_P(HistoryRetention, ThePeriodComesFromTheConfigurationElseNinetyDays) {
  const struct {
    const char* line;
    int days;
  } cases[] = {{"", 90},
               {"HISTORY_RETENTION_DAYS=\n", 90},
               {"HISTORY_RETENTION_DAYS=abc\n", 90},
               {"HISTORY_RETENTION_DAYS=0\n", 90},
               {"HISTORY_RETENTION_DAYS=-5\n", 90},
               {"HISTORY_RETENTION_DAYS=30\n", 30},
               {"HISTORY_RETENTION_DAYS= 365 \n", 365}};
  for (const auto& c : cases) {
    WriteConfig(c.line);
    EXPECT_EQ(RetentionDays(ConfigFile(ConfigPath())), c.days) << c.line;
  }
  EXPECT_EQ(RetentionCutoff(FixedClock({2024, 3, 1, 8, 5, 9}), 30), "2024-01-31 08:05:09");
}

TEST_P(HistoryRetention, PurgeKeepsTheEntriesInsideThePeriodWithTheirRows) {
  InsertDemo();
  session().Set("PUB_USR_ID", "admin");
  const struct {
    LocalTime at;
    const char* query;
  } changes[] = {
      {{2024, 1, 1, 12, 0, 0}, "ReqNo=213&User_cd=yamada&User_Menu=%2F01%2F"},
      {{2024, 2, 1, 10, 20, 29}, "ReqNo=207&Group_cd=0002&User_cd=sato"},
      {{2024, 2, 1, 10, 20, 30}, "ReqNo=209&Group_cd=0002&User_cd=sato"},
      {{2024, 3, 31, 0, 0, 0}, "ReqNo=212&Group_cd1=0005&Group_cd2=0002"},
  };
  for (const auto& c : changes) {
    clock().Set(c.at);
    ASSERT_EQ(Request(c.query), "OK") << c.query;
  }
  data::Connection conn;
  ASSERT_TRUE(data::Com_funDbOpen(Dsn(), "", "", conn).ok());
  long long before_bytes = 0;
  ASSERT_TRUE(HistoryBytes(conn, before_bytes).ok());
  EXPECT_GT(before_bytes, 0);
  long purged = -1;
  // 60 days before 2024-04-01 10:20:30.
  ASSERT_TRUE(PurgeHistory(conn, RetentionCutoff(FixedClock({2024, 4, 1, 10, 20, 30}), 60), purged).ok());
  EXPECT_EQ(purged, 2);
  ASSERT_TRUE(data::Com_funDbClose(conn).ok());
  std::string kept;
  for (const auto& row : Rows(data::Sql() << "select H.ENTRY_TIME, H.CODE, count(R.ID) as N from "
                                          << Table("ORVANE_HISTORY") << " H left join " << Table("ORVANE_HISTORY_ROW")
                                          << " R on R.ENTRY_ID = H.ID group by H.ENTRY_TIME, H.CODE order by 1"))
    kept += text::Join(row, " ") + "\n";
  EXPECT_EQ(kept, "2024-02-01 10:20:30 209 1\n2024-03-31 00:00:00 212 1\n");
  EXPECT_EQ(Rows(data::Sql() << "select count(*) from " << Table("ORVANE_HISTORY_ROW"))[0][0], "2");
}

ORVANE_DB_TEST_SUITE(HistoryRetention);

}  // namespace
}  // namespace orvane::history
