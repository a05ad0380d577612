// `orvane check-data` run as an administrator would, on a real SQLite and
// PostgreSQL database: clean data passes, stored values that today's rules
// refuse are listed (shown safely) and left as they are.
#include <gtest/gtest.h>

#include "support/binary.h"
#include "support/db_fixture.h"

namespace orvane {
namespace {

using testing::DbTest;
using testing::RunBinary;

using CheckData = DbTest;

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
  data::Sql sql;
  sql << "select SEC_NM from " << data::Table("T_SECTION") << " where SEC_CD = '0100'";
  EXPECT_EQ(Rows(sql), (testing::Cells{{"営業部, 東京"}}));
}

ORVANE_DB_TEST_SUITE(CheckData);

}  // namespace
}  // namespace orvane
