// `orvane history` from a shell on a real database: one entry a line,
// newest first, each starting with its id; filters; --purge.
#include <gtest/gtest.h>

#include "base/text.h"
#include "support/binary.h"
#include "support/db_fixture.h"

namespace orvane {
namespace {

using testing::RunBinary;

class HistoryCli : public testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    InsertDemo();
    session().Set("PUB_USR_ID", "admin");
    ASSERT_EQ(Request("ReqNo=209&Group_cd=0002&User_cd=yamada"), "OK");
    clock().Set({2024, 4, 2, 8, 0, 0});
    ASSERT_EQ(Request("ReqNo=207&Group_cd=0009&User_cd=sato"),
              "ERROR:RECINSERTfunInsCirMember\r\nno such section: 0009");
  }
  // The lines with each line's leading id replaced by "#".
  std::string Lines(const std::string& args) {
    auto [status, out] = RunBinary("history --config " + ConfigPath() + " " + args);
    EXPECT_EQ(status, 0) << out;
    std::string lines;
    for (const std::string& line : text::Split(out, "\n")) {
      if (line.empty()) continue;
      size_t blank = line.find(' ');
      EXPECT_GT(std::stol(line.substr(0, blank)), 0) << line;
      lines.append("#").append(line.substr(blank)).append("\n");
    }
    return lines;
  }
};

TEST_P(HistoryCli, PrintsOneEntryALineNewestFirstAndPurges) {
  const std::string removed =
      "#  2024-04-01 10:20:30  admin@local  209 membership removed  OK  membership 山田 太郎 (yamada) in 総務部 "
      "(0002): deleted\n";
  const std::string refused =
      "#  2024-04-02 08:00:00  admin@local  207 membership added  ERROR:RECINSERTfunInsCirMember  "
      "refused: ERROR:RECINSERTfunInsCirMember\n";
  EXPECT_EQ(Lines(""), refused + removed);
  EXPECT_EQ(Lines("--group 0002"), removed);
  EXPECT_EQ(Lines("--code 207 --until 2024-04-02"), refused);
  EXPECT_EQ(Lines("--since 2024-04-03"), "");
  EXPECT_EQ(Lines("--limit 1"), refused);
  auto [status, out] = RunBinary("history --config " + ConfigPath() + " --since 2024-4-3");
  EXPECT_EQ(status, 1);
  EXPECT_EQ(out, "orvane history: since: a date as YYYY-MM-DD\n");
  // Both entries are far older than 90 days.
  std::tie(status, out) = RunBinary("history --config " + ConfigPath() + " --purge");
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(out.starts_with("orvane history: purged 2 entries older than ")) << out;
  EXPECT_TRUE(out.ends_with(" (90 days kept)\n")) << out;
  EXPECT_EQ(Lines(""), "");
}

ORVANE_DB_TEST_SUITE(HistoryCli);

}  // namespace
}  // namespace orvane
