// User registration (204-206) end to end on a real SQLite and PostgreSQL
// database, with a real exe-proxy peer holding the mail server's folders:
// the rows each request leaves, the exact commands the mail server gets,
// and the answers when the database or the mail server refuses.
#include "accounts/user_registration.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/db_fixture.h"
#include "support/exe_proxy_peer.h"
#include "support/failure_seam.h"
#include "support/mail_env.h"

namespace orvane::accounts {
namespace {

using data::Quoted;
using data::Table;
using orvane::testing::ExeProxyPeer;
using orvane::testing::Point;
using orvane::testing::ScopedFailure;
using Sent = std::vector<std::string>;

class UserRegistration : public orvane::testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    session().Set("PUB_USR_ID", "admin");
    mail_ = dir().File("mail");
    peer_ = std::make_unique<ExeProxyPeer>(mail_, mail_ + "\\");
    WriteConfig(peer_->Ini());
    // Replies every command accepts: "OK:" first, "added" and "deleted" in it.
    peer_->QueueSpexeReplies(std::vector<std::string>(40, "OK: deleted added"));
    dir().Write("menuinfo.csv", "01,a,1\n07,b,1\n20,c,1\n23,d,1\n50,e\n");
    ReloadApplication();
  }
  // What one SPEXE exchange sends for `command` (after the tool folder).
  std::string Spexe(const std::string& command) const { return "SPEXE " + mail_ + "\\" + command + "\r\nQUIT\r\n"; }
  std::string One(std::string_view table) { return AllRows({table}); }
  long Count(const char* table, const char* column, const char* value) {
    return std::stol(Rows(data::Sql() << "select count(*) as CNT from " << Table(table) << " where "
                                      << data::Identifier(column) << " = " << Quoted(value))[0][0]);
  }
  void User(const char* id, const char* mail, const char* imail_flg, const char* mail_use,
            const char* table = "T_USER") {
    Insert(table, {{"USER_ID", id}, {"MAIL", mail}, {"IMAIL_FLG", imail_flg}, {"MAIL_USE_FLG", mail_use}});
  }
  std::string mail_;
  std::unique_ptr<ExeProxyPeer> peer_;
};

const std::string kNl = "\r\n";

TEST_P(UserRegistration, CreateWritesTheUsersRowsAndTellsTheMailServer) {
  WriteConfig("DAIRI_ONESELFFLG=1\n" + peer_->Ini());
  EXPECT_EQ(Request("ReqNo=204&User_cd=u1&User_KJ=山田&User_KN=ヤマダ&User_PS=pw1&Mail_AD=taro&Mail_FL=1"
                    "&Ext_TEL=12&Post_NM=課長&Disp_NM=山田&Mail_UFL=1&Mail_NM=Taro"),
            "OK");
  EXPECT_EQ(peer_->Transcripts(),
            (Sent{Spexe("adduser.exe -u u1 -p pw1"), Spexe("addalias.exe -a taro=u1@example.jp")}));
  EXPECT_EQ(One("T_USER"), "u1|山田|ヤマダ|pw1|20240401|taro|1|1|Taro|12|課長|山田||3|20240401|102030|admin\n");
  EXPECT_EQ(One("T_PASSGEN"), "u1|pw1|20240401|admin" + std::string(27, '|') + "\n");
  EXPECT_EQ(One("T_SCHOPEN").substr(0, 11), "u1|2|u1|Z||");
  // 02 opens for 20; 07 and 23 follow the mail account; 50 is not shown.
  const char* menus = "u1|01|02|ZZ|ZZ|ZZ|ZZ|07|ZZ|ZZ|23|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ|ZZ";
  EXPECT_EQ(One("MENU_USER"), std::string(menus) + "|3|20240401|102030|admin\n");

  // No mail account: no mail menus. The inverted mode table creates one all
  // the same (new "0" against an old flag the page did not send).
  EXPECT_EQ(Request("ReqNo=204&User_cd=u2&User_PS=pw2&Mail_UFL=0"), "OK");
  EXPECT_EQ(peer_->Transcripts(), Sent{Spexe("adduser.exe -u u2 -p pw2")});
  auto u2 = Rows(data::Sql() << "select MENU07,MENU23 from " << Table("MENU_USER") << " where USER_ID = 'u2'");
  EXPECT_EQ(u2, (orvane::testing::Cells{{"ZZ", "ZZ"}}));

  // The work tables: UPD_KBN '4', the suffixed history, no schedule row
  // without DAIRI_ONESELFFLG, nothing told to the mail server.
  WriteConfig(peer_->Ini());
  EXPECT_EQ(Request("ReqNo=204&DBFlg=1&User_cd=w1&User_PS=pw&Mail_UFL=1"), "OK");
  EXPECT_EQ(Rows(data::Sql() << "select UPD_KBN from " << Table("T_USER_WORK"))[0][0], "4");
  EXPECT_EQ(One("T_PASSGEN_WORK").substr(0, 6), "w1|pw|");
  EXPECT_EQ(One("T_SCHOPEN_WORK"), "");
  EXPECT_EQ(peer_->Transcripts(), Sent{});
}

TEST_P(UserRegistration, DuplicatesAndMailRefusalsWriteNothing) {
  User("u1", "taro", "1", "1");
  User("u9", "old", "0", "0");
  const std::string id_taken = "入力された【ユーザーID】は" + kNl +
                               "すでに別のユーザーが「ユーザーID」または、「エイリアス」として使用しています。" + kNl +
                               "違う【ユーザーID】または、【エイリアス】を設定してください。";
  auto alias = [](const char* routine, const char* line) {
    return "ERROR:" + std::string(routine) + kNl + "入力された【エイリアス】は" + kNl + line + kNl +
           "違う【エイリアス】を設定してください。";
  };
  struct Case {
    std::string query, answer;
  } cases[] = {
      {"ReqNo=204&User_PS=p&User_cd=u1", "ERROR:" + id_taken},
      {"ReqNo=204&User_PS=p&User_cd=taro", "ERROR:" + id_taken},  // another user's active alias
      {"ReqNo=204&User_PS=p&User_cd=n1&Mail_AD=u9&Mail_FL=1",
       alias("funInsUser", "すでに別のユーザーが「ユーザーID」として使用しています。")},
      {"ReqNo=204&User_PS=p&User_cd=n1&Mail_AD=taro&Mail_FL=1",
       alias("funInsUser", "すでに別のユーザーが「同じエイリアス」で使用しています。")},
      {"ReqNo=205&User_cd=u9&Mail_AD=taro&Mail_FL=1",
       alias("funUpdUser", "すでに別のユーザーが「同じエイリアス」で使用しています。")},
  };
  const std::string before = One("T_USER");
  for (const Case& c : cases) {
    EXPECT_EQ(Request(c.query), c.answer) << c.query;
    EXPECT_EQ(One("T_USER"), before) << c.query;
  }
  EXPECT_EQ(peer_->Transcripts(), Sent{});

  // The mail server refuses the account: the new user's rows go back.
  ExeProxyPeer refusing(mail_, mail_ + "\\");
  refusing.QueueSpexeReplies({"ERR: disk full"});
  WriteConfig(refusing.Ini());
  EXPECT_EQ(Request("ReqNo=204&User_cd=n2&User_PS=p&Mail_UFL=1"), "ERROR:ADDMAILUSERERR: disk full");
  EXPECT_EQ(One("T_USER"), before);
  EXPECT_EQ(One("T_PASSGEN") + One("MENU_USER"), "");
}

TEST_P(UserRegistration, ChangeFollowsTheModeTableTheAliasAndTheMailMenus) {
  struct Case {
    const char *old_use, *new_use, *old_alias, *new_alias;
    Sent sent;
    const char* menus;  // MENU23/MENU07 after the change
  } cases[] = {
      {"0", "0", "", "", {}, "--/--"},
      {"0", "", "", "", {}, "--/--"},  // empty counts as "0" for the menus too
      {"1", "1", "", "", {"adduser.exe -m u1 -p pw"}, "--/--"},
      {"", "", "", "", {"adduser.exe -m u1 -p pw"}, "--/--"},
      {"1", "0", "", "", {"adduser.exe -u u1 -p pw"}, "ZZ/ZZ"},
      {"1", "", "", "", {"adduser.exe -u u1 -p pw"}, "ZZ/ZZ"},
      {"0", "1", "", "", {"adduser.exe -kill u1"}, "23/07"},
      {"", "1", "", "", {"adduser.exe -m u1 -p pw"}, "23/07"},
      {"0", "0", "", "taro", {"addalias.exe -a taro=u1@example.jp"}, "--/--"},
      {"0", "0", "taro", "", {"addalias.exe -d taro"}, "--/--"},
      {"0", "0", "taro", "jiro", {"addalias.exe -d taro", "addalias.exe -a jiro=u1@example.jp"}, "--/--"},
      {"0", "0", "taro", "taro", {}, "--/--"},
  };
  User("u1", "", "0", "0");
  for (const Case& c : cases) {
    std::string query = std::string("ReqNo=205&User_cd=u1&User_PS=pw&Mail_UFL=") + c.new_use +
                        "&OldMail_UFL=" + c.old_use + "&Mail_AD=" + c.new_alias +
                        "&Mail_FL=" + (*c.new_alias ? "1" : "0") + "&OldAlias=" + c.old_alias +
                        "&OldAlias_FL=" + (*c.old_alias ? "1" : "0");
    Exec(data::Sql() << "delete from " << Table("MENU_USER"));
    Insert("MENU_USER", {{"USER_ID", "u1"}, {"MENU23", "--"}, {"MENU07", "--"}});
    EXPECT_EQ(Request(query), "OK") << query;
    Sent sent;
    for (const std::string& command : c.sent) sent.push_back(Spexe(command));
    EXPECT_EQ(peer_->Transcripts(), sent) << query;
    auto menus = Rows(data::Sql() << "select MENU23,MENU07 from " << Table("MENU_USER"));
    EXPECT_EQ(menus[0][0] + "/" + menus[0][1], c.menus) << query;
  }
  EXPECT_EQ(Rows(data::Sql() << "select MAIL,IMAIL_FLG,UPD_KBN from " << Table("T_USER"))[0],
            (std::vector<std::string>{"taro", "1", "2"}));

  // The logged-in user's own change reaches its session.
  User("admin", "", "0", "0");
  EXPECT_EQ(Request("ReqNo=205&User_cd=admin&User_PS=new&Mail_AD=ad&Mail_UFL=0&OldMail_UFL=0"), "OK");
  EXPECT_EQ(session().Get("PUB_USR_PW") + session().Get("PUB_MAIL") + session().Get("PUB_MAIL_USR_PW"), "newadnew");
}

TEST_P(UserRegistration, DeleteClearsEveryRowFolderAndListOfTheUser) {
  User("u1", "taro", "1", "1");
  User("u2", "", "0", "0");
  const char* tables[] = {
      "MENU_USER",          "T_PASSGEN",    "rsv_approver_member", "custom_master", "rsv_approve_status",
      "top_setting",        "user_setting", "mail_setting",        "MYLINK_INFO",   "TODO_INFO",
      "ZAISEKI_INFO",       "MESSAGE_MAIL", "MESSAGE_INFO",        "ACCESS_INFO",   "LOG_GET",
      "LOG_GET_BAT",        "LOG_BBS_GET",  "LOG_BBS_BAT",         "WF_NENKYU",     "WF_SYUKKINBO",
      "WF_SYUKKINBO_RIREKI"};
  for (const char* t : tables)
    for (const char* id : {"u1", "u2"}) Insert(t, {{"USER_ID", id}});
  for (const char* t :
       {"t_bbsopen", "t_rsvopen", "t_schopen", "t_linkopen", "t_cabopen", "t_adbkopen", "T_TOPICOPEN", "WF_KENGEN"})
    for (const char* kbn : {"1", "2"}) Insert(t, {{"OPEN_ID", "u1"}, {"OPEN_KBN", kbn}});
  Insert("t_schopen", {{"KEY_CD", "u1"}, {"OPEN_ID", "x"}});
  Insert("custom_info", {{"MEMBER_ID", "u1"}});
  Insert("ACCESS_TIME_BAT", {{"ACC_BH_USER_ID", "u1"}});
  Insert("ACCESS_PAGE_BAT", {{"ACC_BP_USER_ID", "u1"}});
  // Address-book groups with and without addresses; u2's stays.
  for (auto [user, group] : {std::pair{"u1", "g1"}, {"u1", "g2"}, {"u2", "g3"}})
    Insert("PSADGP_INFO", {{"USER_ID", user}, {"ADGP_CD", group}});
  for (const char* group : {"g1", "g3"}) Insert("PSADDR_INFO", {{"ADGP_CD", group}});
  for (auto [sec, list] : {std::pair{"0001", "sales"}, {"0002", "dev"}, {"0003", "ops"}}) {
    Insert("T_SECTION", {{"SEC_CD", sec}, {"IMAIL_LIST", list}});
    Insert("T_SECMEMBER", {{"SEC_CD", sec}, {"USER_ID", "u1"}});
    dir().Write(std::string("mail/Lists/") + list + "/users.lst", "u1@example.jp\r\nu2@example.jp\r\n");
  }
  for (const char* folder : {"mail/users/u1/in", "attach/read/u1", "attach/send/u1/x", "attach/save/u1"})
    dir().Write(std::string(folder) + "/f", "x");
  const std::string live_before = One("t_bbsopen");

  {  // A statement failing in the middle takes every delete back.
    ScopedFailure failure(Point::kStatement, 12, "HY000", "boom");
    EXPECT_TRUE(
        Request("ReqNo=206&User_cd=u1&Mail_UFL=1").starts_with("ERROR:DELETEUSER\r\nfunDelUser\r\n[Com_funExecsql]"));
  }
  EXPECT_EQ(One("T_USER").substr(0, 3), "u1|");
  EXPECT_EQ(One("t_bbsopen"), live_before);
  peer_->Transcripts();

  EXPECT_EQ(Request("ReqNo=206&User_cd=u1&Mail_UFL=1"), "OK");
  Sent sent = peer_->Transcripts();
  ASSERT_GE(sent.size(), 2u);
  EXPECT_EQ(Sent(sent.begin(), sent.begin() + 2), (Sent{Spexe("adduser.exe -kill u1"), Spexe("addalias.exe -d taro")}));
  for (const char* list : {"sales", "dev", "ops"})
    EXPECT_EQ(orvane::testing::ReadFile(dir().File(std::string("mail/Lists/") + list + "/users.lst")),
              "u2@example.jp\r\n")
        << list;
  for (const char* t : tables) EXPECT_EQ(Count(t, "USER_ID", "u1") * 10 + Count(t, "USER_ID", "u2"), 1) << t;
  for (const char* t :
       {"t_bbsopen", "t_rsvopen", "t_schopen", "t_linkopen", "t_cabopen", "t_adbkopen", "T_TOPICOPEN", "WF_KENGEN"})
    EXPECT_EQ(Count(t, "OPEN_ID", "u1"), 1) << t;  // opened to a group, not to the user
  EXPECT_EQ(Count("T_USER", "USER_ID", "u1") + Count("T_SECMEMBER", "USER_ID", "u1") +
                Count("t_schopen", "KEY_CD", "u1") + Count("custom_info", "MEMBER_ID", "u1") +
                Count("ACCESS_TIME_BAT", "ACC_BH_USER_ID", "u1") + Count("ACCESS_PAGE_BAT", "ACC_BP_USER_ID", "u1"),
            0);
  EXPECT_EQ(One("PSADGP_INFO") + One("PSADDR_INFO"), "u2|g3\ng3\n");
  for (const char* folder : {"mail/users/u1", "attach/read/u1", "attach/send/u1", "attach/save/u1"})
    EXPECT_FALSE(std::filesystem::exists(dir().File(folder))) << folder;

  // On the work tables the personal data stay and the mail server hears nothing.
  User("w1", "", "0", "0", "T_USER_WORK");
  Insert("MYLINK_INFO", {{"USER_ID", "w1"}});
  Insert("t_linkopen", {{"OPEN_ID", "w1"}, {"OPEN_KBN", "2"}});
  EXPECT_EQ(Request("ReqNo=206&DBFlg=1&User_cd=w1"), "OK");
  EXPECT_EQ(One("T_USER_WORK") + One("t_linkopen"), "u1|1\n");
  EXPECT_EQ(Count("MYLINK_INFO", "USER_ID", "w1"), 1);
  EXPECT_EQ(peer_->Transcripts(), Sent{});
}

TEST_P(UserRegistration, FrameFailuresAnswerExactlyAndAnIllegalFlagOpensNothing) {
  const std::string add = "ReqNo=204&User_cd=n1&User_PS=p&Mail_UFL=0&OldMail_UFL=0";
  struct Case {
    Point point;
    int nth;
    std::string answer;
    bool changed;
  } cases[] = {
      {Point::kCommit, 1, "ERROR:DBCOMMIT", false},
      {Point::kClose, 1, "ERROR:DBCLOSE", true},
  };
  for (const Case& c : cases) {
    {
      ScopedFailure failure(c.point, c.nth, "HY000", "boom");
      EXPECT_EQ(Request(add), c.answer);
    }
    EXPECT_EQ(One("T_USER").empty(), !c.changed) << c.answer;
    for (const char* table : {"T_USER", "T_PASSGEN", "MENU_USER"}) Exec(data::Sql() << "delete from " << Table(table));
  }
  {  // A refused statement whose rollback fails too: the step's answer stands, nothing stays.
    ScopedFailure failure(Point::kStatement, 3, "23000", "boom");
    failure.Also(Point::kRollback, 1, "HY000", "boom");
    EXPECT_TRUE(Request(add).starts_with("ERROR:INSERTUSER\r\nfunInsUser\r\n[Com_funExecsql]"));
  }
  EXPECT_EQ(One("T_USER") + One("T_PASSGEN") + One("MENU_USER"), "");

  ConfigFile config(ConfigPath());
  for (const char* flag : {"4", ""}) {
    RequestContext ctx(config, session(), app(), clock());
    ScopedFailure failure(Point::kOpen, 1, "08001", "boom");
    RegistUser1(ctx, flag, {.user_cd = "n1"}, {});
    EXPECT_EQ(ctx.response(), "ERROR:ILLEGALUPDATEFLAG") << flag;
  }
}

ORVANE_DB_TEST_SUITE(UserRegistration);

}  // namespace
}  // namespace orvane::accounts
