// The import run in-process on a real SQLite and PostgreSQL database with
// the demo organisation: bad files are refused line by line and change
// nothing, a failure in the middle of an apply leaves the database as it
// was, and the mail commands of an import reach a real exe-proxy peer, with
// a failing peer's lines in the report and a retry that completes them.
#include <gtest/gtest.h>

#include <fstream>

#include "support/db_fixture.h"
#include "support/exe_proxy_peer.h"
#include "support/failure_seam.h"
#include "transfer/export.h"
#include "transfer/import_apply.h"
#include "transfer/import_mail.h"

namespace orvane {
namespace {

using testing::DbTest;
using testing::ScopedFailure;
using transfer::Encoding;
using transfer::ImportFile;
using transfer::ImportPlan;
using transfer::ImportReport;

class TransferImport : public DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    WriteConfig("ML_MODE=0\n");
    InsertDemo();
    session().Set("PUB_USR_ID", "admin");
  }

  ImportReport Apply(const std::vector<ImportFile>& files, transfer::ImportOptions options = {}) {
    ConfigFile config(ConfigPath());
    RequestContext ctx(config, session(), app(), clock());
    transfer::PrepareImportContext(ctx);
    options.today = "20240401";
    ImportReport report;
    transfer::ApplyImport(ctx, files, options, plan_, report);
    return report;
  }

  // Every exported file, joined: what "nothing changed" compares.
  std::string Exported() {
    std::vector<transfer::ExportedFile> files;
    EXPECT_TRUE(transfer::ExportOrganisation(Dsn(), Encoding::kUtf8, files).ok());
    std::string all;
    for (const auto& f : files) all += f.bytes;
    return all;
  }

  ImportPlan plan_;
};

struct BadFile {
  const char* what;
  const char* file;
  std::string bytes;
  Encoding encoding;
  bool delete_missing;
  std::string error;  // the plan's error line
};

TEST_P(TransferImport, BadFilesAreRefusedLineByLineAndChangeNothing) {
  const BadFile cases[] = {
      {"unknown parent", "sections.csv", "code,parent,name\r\n0100,0099,新部\r\n", Encoding::kUtf8, false,
       "ERROR: sections.csv line 2: unknown parent: 0099"},
      {"duplicate key", "users.csv", "id,post\nyamada,部長\nyamada,課長\n", Encoding::kUtf8, false,
       "ERROR: users.csv line 3: duplicate key yamada: also on line 2"},
      {"comma inside a quoted name", "sections.csv", "code,name\n0001,\"営業部, 東京\"\n", Encoding::kUtf8, false,
       "ERROR: sections.csv line 2: name: must not hold a comma"},
      {"cycle", "sections.csv", "code,parent\n0001,0004\n", Encoding::kUtf8, false,
       "ERROR: sections.csv line 2: parent 0004 makes a cycle: 0001 -> 0004 -> 0001"},
      {"invalid date", "memberships.csv", "user,section,start\nyamada,0004,20240231\n", Encoding::kUtf8, false,
       "ERROR: memberships.csv line 2: start: must be a calendar date written yyyymmdd"},
      {"Shift_JIS file read as UTF-8", "sections.csv", "code,name\r\n0001,\x89\x63\x8B\xC6\x95\x94\r\n",
       Encoding::kUtf8, false,
       "ERROR: sections.csv line 2: not UTF-8 text (a Shift_JIS file needs the Shift_JIS encoding)"},
      {"file with a byte-order mark read as Shift_JIS", "sections.csv",
       "\xEF\xBB\xBF"
       "code,name\r\n0001,x\r\n",
       Encoding::kShiftJis, false,
       "ERROR: sections.csv line 1: a UTF-8 byte-order mark in a file read as Shift_JIS (leave out --encoding for "
       "UTF-8)"},
      {"empty file", "users.csv", "", Encoding::kUtf8, false, "ERROR: users.csv line 1: empty file: no header line"},
      {"unknown header column", "users.csv", "id,nickname\nyamada,yam\n", Encoding::kUtf8, false,
       "ERROR: users.csv line 1: unknown column \"nickname\" (users.csv has id, name, reading, mail_name, mail, "
       "alias_in_use, mail_use, phone, post, display_name, password)"},
      {"broken quoting", "users.csv", "id,post\nyamada,\"部長\n", Encoding::kUtf8, false,
       "ERROR: users.csv line 2: broken quoting (a quote must open and close a field)"},
      {"fields that do not match the header", "users.csv", "id,post\nyamada\n", Encoding::kUtf8, false,
       "ERROR: users.csv line 2: 1 fields where the header has 2"},
      {"a section removed while it has children", "sections.csv",
       "code,parent\n0000,9999\n0002,0000\n0003,0000\n0004,0001\n0005,0001\n", Encoding::kUtf8, true,
       "ERROR: sections.csv: a section with children is not removed (children: 0004 0005)"},
      {"two primary memberships at once", "memberships.csv", "user,section,kind\nyamada,0002,1\n", Encoding::kUtf8,
       false, "ERROR: memberships.csv line 2: another primary membership at the same time: section 0004"},
      {"rights naming an unknown menu", "menu_rights.csv", "user,rights\nsato,/01/98/\n", Encoding::kUtf8, false,
       "ERROR: menu_rights.csv line 2: rights: must be menu numbers framed by \"/\" (\"/01/21/\"), each one of the "
       "menu list"},
  };
  const std::string before = Exported();
  for (const BadFile& c : cases) {
    ImportReport report =
        Apply({{c.file, c.bytes}}, {.encoding = c.encoding, .delete_missing = c.delete_missing, .today = ""});
    EXPECT_FALSE(report.applied) << c.what;
    EXPECT_EQ(report.refusal, "1 line errs; nothing was applied") << c.what;
    std::string text = transfer::PlanText(plan_);
    EXPECT_NE(text.find("\n" + c.error + "\n"), std::string::npos) << c.what << "\n" << text;
    EXPECT_EQ(Exported(), before) << c.what;
  }
}

TEST_P(TransferImport, ChangesApplyAndAFailureInTheMiddleChangesNothing) {
  const std::vector<ImportFile> files = {
      {"sections.csv", "code,parent,name\n0100,0001,北日本営業課\n0002,0001,総務部\n"},
      {"users.csv", "id,name,post\nkimura,木村 翔,\nyamada,山田 太郎,部長\n"},
      {"memberships.csv", "user,section,kind,start\nkimura,0100,1,20240401\n"},
      {"menu_rights.csv", "user,rights\nkimura,/01/21/\n"},
  };
  const std::string before = Exported();
  for (int nth : {3, 9, 14}) {
    ScopedFailure failure(testing::Point::kStatement, nth, "08S01", "connection lost");
    ImportReport report = Apply(files);
    EXPECT_FALSE(report.applied) << nth;
    EXPECT_NE(report.refusal.find("; nothing was applied"), std::string::npos) << report.refusal;
    EXPECT_EQ(Exported(), before) << nth;
  }

  ImportReport report = Apply(files);
  ASSERT_TRUE(report.applied) << report.refusal;
  EXPECT_EQ(report.Summary(), "applied: 4 added, 2 changed, 0 deleted; 0 mail commands failed");
  EXPECT_EQ(report.lines[2].key, "kimura");
  EXPECT_EQ(report.lines[2].password.size(), 12u);  // made, given once
  data::Sql sql;
  sql << "select SEC_CD ,JOI_SEC ,SEC_SEQ ,SEC_TREE ,TREE_NM from " << data::Table("T_SECTION")
      << " where SEC_CD in ('0100', '0002') order by SEC_CD";
  // The new section and then 総務部, moved, go after 営業部's two children.
  EXPECT_EQ(Rows(sql), (testing::Cells{{"0002", "0001", "004", "0000/0001/0002", "/ 営業部 / 総務部"},
                                       {"0100", "0001", "003", "0000/0001/0100", "/ 営業部 / 北日本営業課"}}));
  data::Sql member;
  member << "select SEC_KBN ,USER_SEQ ,ST_YMD ,ED_YMD from " << data::Table("T_SECMEMBER")
         << " where USER_ID = 'kimura'";
  EXPECT_EQ(Rows(member), (testing::Cells{{"1", "001", "20240401", "99999999"}}));

  // One history entry, with a line for every row the import wrote.
  data::Sql history;
  history << "select H.CODE ,H.ANSWER ,R.ROW_TABLE ,R.ROW_ACTION ,R.ROW_KEY from " << data::Table("ORVANE_HISTORY")
          << " H join " << data::Table("ORVANE_HISTORY_ROW") << " R on R.ENTRY_ID = H.ID where H.ANSWER = 'OK'"
          << " and R.ROW_TABLE in ('T_SECTION', 'T_USER', 'T_SECMEMBER') order by R.ID";
  EXPECT_EQ(Rows(history), (testing::Cells{{"import", "OK", "T_SECTION", "insert", "0100"},
                                           {"import", "OK", "T_SECTION", "update", "0002"},
                                           {"import", "OK", "T_SECTION", "update", "0002"},
                                           {"import", "OK", "T_USER", "insert", "kimura"},
                                           {"import", "OK", "T_USER", "update", "yamada"},
                                           {"import", "OK", "T_SECMEMBER", "insert", "0100/kimura"}}));
}

TEST_P(TransferImport, ShiftJisFilesAreReadWhenSaidSo) {
  ImportReport report = Apply({{"sections.csv", "code,name\r\n0001,\x89\x63\x8B\xC6\x96\x7B\x95\x94\r\n"}},
                              {.encoding = Encoding::kShiftJis, .delete_missing = false, .today = ""});
  ASSERT_TRUE(report.applied) << report.refusal;
  data::Sql sql;
  sql << "select SEC_NM ,TREE_NM from " << data::Table("T_SECTION") << " where SEC_CD = '0004'";
  EXPECT_EQ(Rows(sql), (testing::Cells{{"東日本営業課", "/ 営業本部 / 東日本営業課"}}));
}

TEST_P(TransferImport, MailCommandsReachTheProxyAndAFailedOneIsRetriedFromTheReport) {
  const std::string mail = dir().File("mail");
  testing::ExeProxyPeer peer(mail, mail + "\\");
  WriteConfig("ML_MODE=2\nML_ISLOCAL=False\nML_EXEPROXY_TIMEOUT=2\nML_EXEPROXY_PORT=" + peer.Port() + "\n");
  auto spexe = [&](const std::string& command) { return "SPEXE " + mail + "\\" + command + "\r\nQUIT\r\n"; };

  // The first account command is refused: its line says so, the rest go on.
  peer.QueueSpexeReplies({"NG: disk full", "OK: added"});
  ImportReport report = Apply({{"users.csv", "id,mail_use,password\nkimura,1,pw-k\nmori,1,pw-m\n"}});
  ASSERT_TRUE(report.applied) << report.refusal;
  EXPECT_EQ(peer.Transcripts(), (std::vector<std::string>{"SPEXE " + mail + "\\adduser.exe -u kimura -p pw-k\r\n",
                                                          spexe("adduser.exe -u mori -p pw-m")}));
  ASSERT_EQ(report.lines.size(), 2u);
  EXPECT_EQ(report.lines[0].result, "mail failed: account command: NG: disk full");
  EXPECT_EQ(report.lines[1].result, "done");
  EXPECT_EQ(report.Summary(), "applied: 2 added, 0 changed, 0 deleted; 1 mail command failed");

  // The report fed back: only kimura's command again. The password came
  // from the file, which the report never keeps: without the file the
  // account is not made, with another file the retry is refused.
  const std::string users = "id,mail_use,password\nkimura,1,pw-k\nmori,1,pw-m\n";
  struct Retry {
    std::vector<ImportFile> files;
    std::string refusal, result, sent;
  } retries[] = {
      {{},
       "",
       "mail failed: account command: no password for the new account (it came from users.csv: give that file "
       "to the retry)",
       ""},
      {{{"users.csv", "id,password\nmori,pw-m\n"}},
       "users.csv line 2 does not hold kimura: not the file of this import",
       "",
       ""},
      {{{"dir/users.csv", users}}, "", "done", spexe("adduser.exe -u kimura -p pw-k")},
  };
  ConfigFile config(ConfigPath());
  for (const Retry& r : retries) {
    ImportReport again;
    std::string error;
    ASSERT_TRUE(transfer::ReadReportCsv(transfer::ReportCsv(report), again, error)) << error;
    RequestContext ctx(config, session(), app(), clock());
    Status s = transfer::RetryMail(ctx, again, r.files, Encoding::kUtf8);
    EXPECT_EQ(s.trail(), r.refusal);
    if (!s.ok()) continue;
    EXPECT_EQ(again.lines[0].result, r.result);
    EXPECT_EQ(peer.Transcripts(), r.sent.empty() ? std::vector<std::string>{} : std::vector<std::string>{r.sent});
  }
}

// A section's new list gets its members of today; a deleted user leaves
// its sections' lists; a list that is not there is the line's failure, and
// the retry completes it once the list exists.
TEST_P(TransferImport, MailingListsFollowTheImportAndAFailedListIsRetried) {
  const std::string mail = dir().File("mail");
  testing::ExeProxyPeer peer(mail, mail + "\\");
  WriteConfig("ML_ISLOCAL=False\nML_EXEPROXY_TIMEOUT=2\nML_EXEPROXY_PORT=" + peer.Port() + "\n");
  dir().Write("mail/Lists/sales-east/users.lst", "yamada@example.jp\r\nsato@example.jp\r\n");
  dir().Write("mail/Lists/sales-west/users.lst", "");
  auto members = [&](const std::string& list) {
    std::ifstream in(dir().File("mail/Lists/" + list + "/users.lst"), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
  };

  ImportReport deleted = Apply({{"users.csv", "id\nadmin\nyamada\nito\nwatanabe\ntanaka\n"}},
                               {.encoding = Encoding::kUtf8, .delete_missing = true, .today = ""});
  ASSERT_TRUE(deleted.applied) << deleted.refusal;
  EXPECT_EQ(deleted.Summary(), "applied: 0 added, 0 changed, 1 deleted; 0 mail commands failed");
  EXPECT_EQ(members("sales-east"), "yamada@example.jp\r\n");

  ImportReport report = Apply({{"sections.csv", "code,mailing_list\n0005,sales-west\n0002,nolist\n"}});
  ASSERT_TRUE(report.applied) << report.refusal;
  EXPECT_EQ(transfer::ReportCsv(report),
            "\xEF\xBB\xBF"
            "file,line,key,action,result,password,mail_before,lists\r\n"
            "sections.csv,3,0002,change,mail failed: list nolist: List Exist Error(0),,,nolist\r\n"
            "sections.csv,2,0005,change,done,,,\r\n");  // parents first
  EXPECT_EQ(members("sales-west"), "ito@example.jp\r\n");

  dir().Write("mail/Lists/nolist/users.lst", "");
  ConfigFile config(ConfigPath());
  RequestContext ctx(config, session(), app(), clock());
  ASSERT_TRUE(transfer::RetryMail(ctx, report, {}, Encoding::kUtf8).ok());
  EXPECT_EQ(report.lines[0].result, "done");
  EXPECT_EQ(report.lines[0].lists, "");
  EXPECT_EQ(members("nolist"), "yamada@example.jp\r\n");
}

ORVANE_DB_TEST_SUITE(TransferImport);

}  // namespace
}  // namespace orvane
