// `orvane export` and `orvane import` run as an administrator would, on a
// real SQLite and PostgreSQL database: the demo organisation exported,
// imported unchanged into an emptied database and exported again gives the
// same bytes; the files are what a spreadsheet opens.
#include <gtest/gtest.h>

#include "support/binary.h"
#include "support/db_fixture.h"
#include "support/mail_env.h"

namespace orvane {
namespace {

using testing::DbTest;
using testing::ReadFile;
using testing::RunBinary;

using TransferRoundTrip = DbTest;

// The first `n` lines of `text`, line ends kept.
std::string FirstLines(const std::string& text, int n) {
  size_t end = 0;
  for (int i = 0; i < n && end != std::string::npos; ++i) end = text.find("\r\n", end ? end + 2 : 0);
  return text.substr(0, end == std::string::npos ? end : end + 2);
}

constexpr const char* kFiles[] = {"sections.csv", "users.csv", "memberships.csv", "menu_rights.csv"};

TEST_P(TransferRoundTrip, ExportImportIntoAnEmptyDatabaseAndExportAgainGiveTheSameFiles) {
  WriteConfig("ML_MODE=0\n");
  InsertDemo();
  const std::string first = dir().File("first"), second = dir().File("second");
  ASSERT_EQ(
      RunBinary("export --config " + ConfigPath() + " --out " + first),
      std::pair(0, "orvane export: wrote sections.csv users.csv memberships.csv menu_rights.csv to " + first + "\n"));
  EXPECT_EQ(ReadFile(first + "/sections.csv"),
            "\xEF\xBB\xBF"
            "code,parent,name,display_name,mailing_list,department_code,order\r\n"
            "0000,9999,本社,本社,general,B0000,001\r\n"
            "0001,0000,営業部,営業部,,B0001,001\r\n"
            "0004,0001,東日本営業課,東日本営業課,sales-east,B0004,001\r\n"
            "0005,0001,西日本営業課,西日本営業課,,B0005,002\r\n"
            "0002,0000,総務部,総務部,,B0002,002\r\n"
            "0003,0000,開発部,開発部,,B0003,003\r\n");
  EXPECT_EQ(ReadFile(first + "/menu_rights.csv").substr(0, 60),
            "\xEF\xBB\xBFuser,rights\r\nadmin,/01/02/03/04/05/06/07/21/22/23/24/25/2");
  const std::string users = ReadFile(first + "/users.csv");
  EXPECT_EQ(FirstLines(users, 2),
            "\xEF\xBB\xBF"
            "id,name,reading,mail_name,mail,alias_in_use,mail_use,phone,post,display_name\r\n"
            "admin,管理者,カンリシャ,管理者,admin,0,0,100,部長,001\r\n");
  EXPECT_EQ(users.find("PASSWORD"), std::string::npos);

  for (const char* table : {"T_SECMEMBER", "MENU_USER", "T_PASSGEN", "T_SCHOPEN", "T_USER", "T_SECTION"}) {
    data::Sql sql;
    sql << "delete from " << data::Table(table);
    Exec(sql);
  }
  std::string files;
  for (const char* f : kFiles) files += " " + first + "/" + f;
  auto [status, output] =
      RunBinary("import --config " + ConfigPath() + " --report " + dir().File("report.csv") + files);
  EXPECT_EQ(status, 0) << output;
  EXPECT_EQ(output, "orvane import: applied: 26 added, 0 changed, 0 deleted; 0 mail commands failed; report in " +
                        dir().File("report.csv") + "\n");
  ASSERT_EQ(RunBinary("export --config " + ConfigPath() + " --out " + second).first, 0);
  for (const char* f : kFiles) EXPECT_EQ(ReadFile(second + "/" + f), ReadFile(first + "/" + f)) << f;

  // The same files again: every line unchanged, nothing to apply.
  EXPECT_EQ(RunBinary("import --dry-run --config " + ConfigPath() + files),
            std::pair(0, std::string("sections.csv: 0 to add, 0 to change, 6 unchanged, 0 to delete, 0 errors\n"
                                     "users.csv: 0 to add, 0 to change, 6 unchanged, 0 to delete, 0 errors\n"
                                     "memberships.csv: 0 to add, 0 to change, 8 unchanged, 0 to delete, 0 errors\n"
                                     "menu_rights.csv: 0 to add, 0 to change, 6 unchanged, 0 to delete, 0 errors\n"
                                     "in all: 0 to add, 0 to change, 26 unchanged, 0 to delete, 0 errors\n")));
}

TEST_P(TransferRoundTrip, ShiftJisExportIsCodePage932WithoutAMark) {
  InsertDemo();
  ASSERT_EQ(RunBinary("export --encoding shift_jis --config " + ConfigPath() + " --out " + dir().File("sjis")).first,
            0);
  EXPECT_EQ(FirstLines(ReadFile(dir().File("sjis") + "/sections.csv"), 2),
            "code,parent,name,display_name,mailing_list,department_code,order\r\n"
            "0000,9999,\x96\x7B\x8E\xD0,\x96\x7B\x8E\xD0,general,B0000,001\r\n");
}

ORVANE_DB_TEST_SUITE(TransferRoundTrip);

}  // namespace
}  // namespace orvane
