// The validation step over real HTTP on a real database: refused values
// answer exactly and change nothing (rows, list files), accepted edge values
// are stored exactly as given, existing keys that break the rules keep
// working, and a new user is never an administrator.
#include <gtest/gtest.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "support/db_fixture.h"
#include "support/exe_proxy_peer.h"
#include "support/http_fixture.h"
#include "support/mail_env.h"

namespace orvane {
namespace {

using testing::DbTest;
using testing::LiveServer;
using testing::ReadFile;

class FieldRules : public DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (IsSkipped()) return;  // no PostgreSQL server: nothing to set up
    InsertDemo();
    // No mail server: the mail side is not what these cases are about.
    WriteConfig("ML_MODE=0\n");
    dir().Write("menuinfo.csv", "01,スケジュール,1\n21,メール,1\n50,管理者メニュー,1\n51,設定,0\n");
    dir().Write("mail/Lists/sales/users.lst", "a@example.jp\r\n");
    dir().Write("mail/Lists/sales/users.txt", "a@example.jp\r\n");
  }

  // Every row the requests below could touch, sorted, and the list files.
  std::string Snapshot() {
    return AllRows({"T_SECTION", "T_USER", "MENU_USER", "T_SECMEMBER", "T_PASSGEN", "ORVANE_TREE_VERSION"}) +
           ReadFile(dir().File("mail/Lists/sales/users.lst")) + ReadFile(dir().File("mail/Lists/sales/users.txt"));
  }

  // `columns` of the row of `table` whose `key` column holds `value`, "|" between them.
  std::string Cell(const data::Columns& columns, const char* table, const char* key, const std::string& value) {
    std::string row = Joined(data::Sql() << "select " << columns << " from " << data::Table(table) << " where "
                                         << data::Identifier(key) << " = " << data::Quoted(value),
                             "|", "");
    return row.empty() ? "(no row)" : row;
  }
};

const std::string kRefused = "ERROR:INVALIDVALUE\r\n";
const std::string kComma = ": must not hold a comma";
const std::string kControl = ": must not hold a control character";
const std::string kNewId =
    ": must be 1 to 64 of ASCII letters, digits, \".\", \"_\" and \"-\", not starting with \".\" or \"-\"";

TEST_P(FieldRules, RefusedValuesAnswerExactlyAndChangeNothing) {
  const std::string user = "ReqNo=204&User_PS=pw&User_KN=x&Mail_UFL=0&";
  const std::string member = "ReqNo=208&Group_cd=0004&User_cd=yamada&Primary=1&";
  const std::string long_name(101, 'a');
  struct Case {
    std::string form, answer;
  } cases[] = {
      {"ReqNo=201&Group_cd=0000&Group_nm=営業部, 東京&Disp_NM=営", kRefused + "Group_nm" + kComma},
      {"ReqNo=202&Group_cd=0004&Group_nm=a%09b&Disp_NM=x&M_LIST=sales", kRefused + "Group_nm" + kControl},
      {user + "User_cd=n1&User_KJ=a%0Db", kRefused + "User_KJ" + kControl},
      {user + "User_cd=n1&User_KJ=a&Post_NM=a%0Ab", kRefused + "Post_NM" + kControl},
      {"ReqNo=202&Group_cd=0004&Group_nm=x&Disp_NM=a%00b&M_LIST=sales", kRefused + "Disp_NM" + kControl},
      {"ReqNo=205&User_cd=yamada&User_PS=pw&User_KJ=a%7Fb", kRefused + "User_KJ" + kControl},
      {"ReqNo=201&Group_cd=0000&Group_nm=%FF%FE&Disp_NM=x", kRefused + "Group_nm: must be valid UTF-8"},
      {"ReqNo=201&Group_cd=0000&Group_nm=" + long_name, kRefused + "Group_nm: must be at most 100 characters"},
      {user + "User_cd=" + std::string(65, 'u'), kRefused + "User_cd" + kNewId},
      {user + "User_cd=a b", kRefused + "User_cd" + kNewId},
      {user + "User_cd=山田", kRefused + "User_cd" + kNewId},
      {user + "User_cd=.hidden", kRefused + "User_cd" + kNewId},
      {"ReqNo=204&User_cd=n1&User_PS=", kRefused + "User_PS: must not be empty"},
      {"ReqNo=204&User_cd=n1&User_PS=a%09b", kRefused + "User_PS" + kControl},
      {user + "User_cd=n1&Ext_TEL=内線12",
       kRefused + "Ext_TEL: must be at most 32 of digits, blanks, \"+\", \"-\", \"(\" and \")\""},
      {"ReqNo=205&User_cd=yamada&Mail_AD=" + std::string(255, 'm'),
       kRefused + "Mail_AD: must be at most 254 characters"},
      {member + "Post_cd=02&ST_Ymd=20240401&ED_Ymd=20240331", kRefused + "ED_Ymd: the period ends before it starts"},
      {member + "Post_cd=02&ST_Ymd=20240401&ED_Ymd=2024,401", "ERROR:RECUPDATE"},  // the request's own answer stays
      {member + "Post_cd=0,2&ST_Ymd=20240230&ED_Ymd=", "ERROR:RECUPDATE"},         // whatever else it carries
      {member + "Post_cd=0,2&ST_Ymd=20240401&ED_Ymd=", kRefused + "Post_cd" + kComma},
  };
  // The mail server behind the exe proxy: a refusal sends it nothing.
  testing::ExeProxyPeer peer(dir().File("mail"), "D:\\IMail\\");
  WriteConfig("ML_MODE=2\nML_FOLDER=D:\\IMail\\\n" + peer.Ini());
  const std::string audit = dir().File("audit.log");
  LiveServer server(ConfigPath(), clock());
  ASSERT_TRUE(server.state().audit_log.Open(audit).ok());
  const std::string admin = server.LogIn("admin", "admin");
  const std::string before = Snapshot();
  const long long tree = server.state().app.SecHierarchicalVersion();
  for (const Case& c : cases) {
    EXPECT_EQ(server.Call("/orvane", admin, c.form), "200 " + c.answer) << c.form;
    EXPECT_EQ(Snapshot(), before) << c.form;
    EXPECT_EQ(server.state().app.SecHierarchicalVersion(), tree) << c.form;
  }
  EXPECT_EQ(peer.Transcripts(), std::vector<std::string>{});
  // The audit line of each refusal names the refusal's code.
  std::ifstream in(audit);
  size_t refused = 0;
  for (std::string line; std::getline(in, line);) {
    auto j = nlohmann::json::parse(line);
    if (j["event"] == "request" && j["answer"] == "ERROR:INVALIDVALUE") ++refused;
  }
  EXPECT_EQ(refused, std::size(cases) - 2);

  // Without a logged-in user the session check still answers first.
  EXPECT_EQ(Request("ReqNo=201&Group_cd=0000&Group_nm=a,b"), "ERROR:SESSIONCHECK");
}

TEST_P(FieldRules, EdgeValuesAreStoredExactlyAndExistingKeysKeepWorking) {
  // A user whose id breaks today's rules, stored before them.
  Insert("T_USER", {{"USER_ID", "old id,x"}, {"NAME_KJ", "古い"}, {"PASSWORD", "p"}});
  InsertRows("T_SECMEMBER", {"SEC_CD", "USER_ID", "SEC_KBN", "USER_SEQ", "ST_YMD", "ED_YMD"},
             {{"0004", "old id,x", "0", "009", "20200101", "99999999"}});
  LiveServer server(ConfigPath(), clock());
  const std::string admin = server.LogIn("admin", "admin");
  auto post = [&](const std::string& form) { return server.Call("/orvane", admin, form); };
  std::string kanji100;
  for (int i = 0; i < 100; ++i) kanji100 += "営";
  const std::string mail254 = std::string(254 - 12, 'm') + "@example.jp";
  EXPECT_EQ(post("ReqNo=202&Group_cd=0004&Group_nm=" + kanji100 + "&Disp_NM=x&M_LIST="), "200 OK");
  EXPECT_EQ(Cell({"SEC_NM"}, "T_SECTION", "SEC_CD", "0004"), kanji100);
  EXPECT_EQ(post("ReqNo=204&User_cd=O.k_1-2&User_PS=p,w%20x&User_KJ=O'Brien 100%25&User_KN= ア &Mail_AD=" + mail254 +
                 "&Ext_TEL=%2B81 (3) 1234-5678&Mail_UFL=0"),
            "200 OK");
  EXPECT_EQ(Cell({"NAME_KJ", "NAME_KN", "MAIL", "EXT_TEL"}, "T_USER", "USER_ID", "O.k_1-2"),
            "O'Brien 100%| ア |" + mail254 + "|+81 (3) 1234-5678");  // not trimmed
  // A period of one day, and the open end.
  EXPECT_EQ(post("ReqNo=208&Group_cd=0004&User_cd=yamada&Primary=1&Post_cd=02&ST_Ymd=20240401&ED_Ymd=20240401"),
            "200 OK");
  EXPECT_EQ(post("ReqNo=208&Group_cd=0004&User_cd=yamada&Primary=1&Post_cd=02&ST_Ymd=20240401&ED_Ymd=99999999"),
            "200 OK");
  // The old id still names its rows: change, reorder, remove, delete.
  EXPECT_EQ(post("ReqNo=205&User_cd=old id,x&User_PS=p&User_KJ=新しい&Mail_UFL=0&OldMail_UFL=0"), "200 OK");
  EXPECT_EQ(Cell({"NAME_KJ"}, "T_USER", "USER_ID", "old id,x"), "新しい");
  EXPECT_EQ(post("ReqNo=209&Group_cd=0004&User_cd=old id,x"), "200 OK");
  EXPECT_EQ(post("ReqNo=206&User_cd=old id,x"), "200 OK");
  EXPECT_EQ(Cell({"USER_ID"}, "T_USER", "USER_ID", "old id,x"), "(no row)");
}

// The demo shows menu 50; a user registered there still cannot pass the
// edge until 213 grants the right. Other menus keep their defaults.
TEST_P(FieldRules, ANewUserIsNeverAnAdministrator) {
  LiveServer server(ConfigPath(), clock());
  const std::string admin = server.LogIn("admin", "admin");
  auto post = [&](const std::string& cookie, const std::string& form) { return server.Call("/orvane", cookie, form); };
  ASSERT_EQ(post(admin, "ReqNo=204&User_cd=newbie&User_PS=nb-pw&User_KJ=新人&Mail_UFL=0"), "200 OK");
  EXPECT_EQ(Cell({"MENU50", "MENU01", "MENU51"}, "MENU_USER", "USER_ID", "newbie"), "ZZ|01|ZZ");
  EXPECT_EQ(post(server.LogIn("newbie", "nb-pw"), "ReqNo=101"), "401 ERROR:SESSIONCHECK");
  EXPECT_EQ(post(admin, "ReqNo=213&User_cd=newbie&User_Menu=/01/50/"), "200 OK");
  EXPECT_EQ(post(server.LogIn("newbie", "nb-pw"), "ReqNo=101").substr(0, 4), "200 ");

  // Another administrator's column (as `serve --admin-column MENU01` sets
  // it) is the one held back; menu 50 is then an ordinary shown menu.
  server.state().app.SetAdminColumn("MENU01");
  ASSERT_EQ(post(admin, "ReqNo=204&User_cd=second&User_PS=pw&Mail_UFL=0"), "200 OK");
  EXPECT_EQ(Cell({"MENU01", "MENU50"}, "MENU_USER", "USER_ID", "second"), "ZZ|50");
}

ORVANE_DB_TEST_SUITE(FieldRules);

}  // namespace
}  // namespace orvane
