// The mail routines that read the database, on real SQLite and PostgreSQL
// databases, with real list folders and a real exe-proxy peer.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "accounts/mail_alias.h"
#include "accounts/section_mail_list.h"
#include "support/db_fixture.h"
#include "support/exe_proxy_peer.h"

namespace orvane::accounts {
namespace {

using orvane::testing::ExeProxyPeer;
using Sent = std::vector<std::string>;

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

class MailDb : public orvane::testing::DbTest {
 protected:
  void Section(const std::string& code, const char* list) {
    orvane::testing::Row row = {{"SEC_CD", code}, {"JOI_SEC", "0000"}, {"SEC_NM", "S" + code}};
    if (list) row.push_back({"IMAIL_LIST", list});
    Insert("T_SECTION", row);
  }
  void User(const std::string& id, const std::string& mail, const std::string& flag) {
    Insert("T_USER", {{"USER_ID", id}, {"NAME_KJ", id}, {"MAIL", mail}, {"IMAIL_FLG", flag}});
  }
  void ListFolder(const std::string& name, const std::string& members = "") {
    dir().Write("mail/Lists/" + name + "/users.lst", members);
  }
  // Runs `body` with a request context and an open connection.
  template <typename F>
  void WithRequest(F body) {
    ConfigFile config(ConfigPath());
    RequestContext ctx(config, session(), app(), clock());
    data::Connection conn;
    std::string error;
    ASSERT_EQ(data::Com_funDbOpen(Dsn(), "", "", conn, error), 0) << error;
    body(ctx, conn);
  }
};

TEST_P(MailDb, ComboOffersTheFreeListsAndTheSectionsOwn) {
  for (const char* name : {"sales", "dev", "hr extra words", "#retired", "Board", "north"}) ListFolder(name);
  // Inserted out of order: the scan follows SEC_CD, and the section holding
  // an empty list (0003) ends it, so "north" of 0004 stays free.
  Section("0004", "north");
  Section("0003", "");
  Section("0001", "SALES");
  Section("0002", "dev");
  Section("0005", nullptr);
  struct Case {
    const char* query;
    const char* answer;
  } cases[] = {
      {"ReqNo=107&M_List=", "Board,hr,north"},
      {"ReqNo=107&M_List=sales", "Board,hr,north,sales"},
      {"ReqNo=107&M_List=gone", "Board,hr,north"},
  };
  for (const Case& c : cases) EXPECT_EQ(Request(c.query), c.answer) << c.query;
}

TEST_P(MailDb, ComboReadsTheListsThroughTheProxy) {
  ExeProxyPeer peer(dir().File("mail"), "D:\\IMail\\");
  peer.SetFolistReply("#old|sales  main list|board|");
  WriteConfig("ML_ISLOCAL=False\nML_FOLDER=D:\\IMail\\\nML_EXEPROXY_PORT=" + peer.Port() + "\nML_EXEPROXY_TIMEOUT=1\n");
  Section("0001", "board");
  EXPECT_EQ(Request("ReqNo=107&M_List=x"), "sales");
  EXPECT_EQ(peer.Transcripts(), Sent{"FOLIST D:\\IMail\\Lists\\*\r\nQUIT\r\n"});
}

TEST_P(MailDb, ComboWithoutDataSourceOrDatabase) {
  WriteConfig("LOCAL_DB_DSN=\n");
  EXPECT_EQ(Request("ReqNo=107&M_List="), "ERROR:READINFOFILE_SV_FOLDER");
  WriteConfig("LOCAL_DB_DSN=no_such_source\n");
  EXPECT_EQ(Request("ReqNo=107&M_List="), "ERROR:DBOPEN");
}

TEST_P(MailDb, DelMailListTakesTheUserOutOfTheSectionsList) {
  ListFolder("sales", "suzuki@example.jp\r\nb@example.jp\r\n");
  Section("0001", " sales ");
  Section("0002", nullptr);
  Section("0003", "gone");
  WithRequest([&](RequestContext& ctx, data::Connection& conn) {
    std::string error;
    EXPECT_EQ(funDelMailList(ctx, conn, "0001", " SUZUKI ", error), 0);
    EXPECT_EQ(ReadFile(dir().File("mail/Lists/sales/users.lst")), "b@example.jp\r\n");
    EXPECT_EQ(ReadFile(dir().File("mail/Lists/sales/users.txt")), "b@example.jp\r\n");
    EXPECT_EQ(funDelMailList(ctx, conn, "0002", "b", error), 0);
    EXPECT_EQ(funDelMailList(ctx, conn, "9999", "b", error), 0);
    EXPECT_EQ(error, "");
    EXPECT_EQ(funDelMailList(ctx, conn, "0003", "b", error), -1);
    EXPECT_EQ(error, "funDelMailList\r\nList Exist Error(0)");
    EXPECT_EQ(ctx.response(), "");
  });
}

class MailAlias : public MailDb {
 protected:
  void SetUp() override {
    MailDb::SetUp();
    if (IsSkipped()) return;
    User("tanaka", "tk", "1");
    User("sato", "old", "0");
    User("suzuki", "suzu", "1");
  }
};

TEST_P(MailAlias, ChecksTheAliasAndSendsDeleteThenAddThroughTheProxy) {
  const std::string del = "SPEXE D:\\IMail\\addalias.exe -d s1\r\n";
  const std::string add = "SPEXE D:\\IMail\\addalias.exe -a ";
  const std::string nl = "\r\n";
  const std::string taken = "funAdmMailAlias1" + nl + nl + "入力された【エイリアス】は" + nl;
  const std::string retry = nl + "違う【エイリアス】を設定してください。";
  struct Case {
    const char* name;
    const char *mode, *alias, *flag, *old_alias, *old_flag;
    std::vector<std::string> replies;
    short status;
    std::string error;
    Sent sent;
  } cases[] = {
      {"another user's ID",
       "3",
       "sato",
       "1",
       "",
       "0",
       {},
       -1,
       taken + "すでに別のユーザーが「ユーザーID」として使用しています。" + retry,
       {}},
      {"another user's active alias",
       "2",
       "tk",
       "1",
       "s1",
       "1",
       {},
       -1,
       taken + "すでに別のユーザーが「同じエイリアス」で使用しています。" + retry,
       {}},
      {"an inactive alias is free",
       "3",
       "old",
       "1",
       "",
       "0",
       {"alias added"},
       0,
       "",
       {add + "old=suzuki@example.jp\r\nQUIT\r\n"}},
      {"changed alias: delete, then add",
       "2",
       "suzu",
       "1",
       "s1",
       "1",
       {"alias deleted", "Alias Added"},
       0,
       "",
       {del + "QUIT\r\n", add + "suzu=suzuki@example.jp\r\nQUIT\r\n"}},
      {"unchanged alias: nothing", "2", "suzu", "1", "suzu", "1", {}, 0, "", {}},
      {"no alias check without the flag", "2", "sato", "0", "s1", "1", {"no alias s1"}, 0, "", {del + "QUIT\r\n"}},
      {"user delete removes the old alias", "1", "", "", "s1", "1", {"deleted"}, 0, "", {del + "QUIT\r\n"}},
      {"refused delete stops", "2", "new", "1", "s1", "1", {"error"}, -1, "error", {del}},
      {"alias exists undoes the new account",
       "3",
       "new",
       "1",
       "",
       "0",
       {"ERROR: Alias Exists"},
       -1,
       "ERROR: Alias Exists",
       {add + "new=suzuki@example.jp\r\n", "SPEXE D:\\IMail\\adduser.exe -kill suzuki\r\n"}},
      {"other add failures keep it",
       "3",
       "new",
       "1",
       "",
       "0",
       {"ERROR: disk"},
       -1,
       "ERROR: disk",
       {add + "new=suzuki@example.jp\r\n"}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ExeProxyPeer peer(dir().path(), "D:\\");
    peer.QueueSpexeReplies(c.replies);
    // The undo's reply is not judged: the peer refuses it and nothing changes.
    peer.QueueSpexeReplies({"ERROR: no such user"});
    WriteConfig("ML_ISLOCAL=False\nML_EXEPROXY_PORT=" + peer.Port() + "\nML_EXEPROXY_TIMEOUT=1\n");
    WithRequest([&](RequestContext& ctx, data::Connection& conn) {
      std::string error;
      EXPECT_EQ(
          funAdmMailAlias1(ctx, conn, c.mode, "D:\\IMail\\", "suzuki", c.alias, c.flag, c.old_alias, c.old_flag, error),
          c.status);
      EXPECT_EQ(error, c.error);
      EXPECT_EQ(ctx.response(), "");
    });
    EXPECT_EQ(peer.Transcripts(), c.sent);
  }
}

TEST_P(MailAlias, RunsTheLocalToolsAndUndoesWithTheLocalDeleteForm) {
  auto tool = [&](const std::string& name, const std::string& output) {
    std::string path =
        dir().Write("tools/" + name,
                    "#!/bin/sh\necho \"" + name + " $*\" >> \"$(dirname \"$0\")/runs.log\"\necho '" + output + "'\n");
    ::chmod(path.c_str(), 0755);
  };
  tool("addalias.exe", "alias exists");
  tool("adduser.exe", "OK: deleted");
  WriteConfig("ML_ISLOCAL=TRUE\nML_EXEPROXY_TIMEOUT=1\n");
  std::string folder = dir().File("tools/");
  WithRequest([&](RequestContext& ctx, data::Connection& conn) {
    std::string error;
    EXPECT_EQ(funAdmMailAlias1(ctx, conn, "3", folder, "suzuki", "new", "1", "", "0", error), -1);
    EXPECT_EQ(error, "alias exists\n");
  });
  EXPECT_EQ(ReadFile(dir().File("tools/runs.log")),
            "addalias.exe -a new=suzuki@example.jp\nadduser.exe -kill -u suzuki\n");
}

TEST_P(MailAlias, ReportsAMissingServerAndAFailingQuery) {
  WriteConfig("ML_SERVER=\n");
  WithRequest([&](RequestContext& ctx, data::Connection& conn) {
    std::string error;
    EXPECT_EQ(funAdmMailAlias1(ctx, conn, "3", "D:\\", "suzuki", "new", "1", "", "0", error), -1);
    EXPECT_EQ(ctx.response(), "ERROR:READINFOFILE_SV_FOLDER");
  });
  WriteConfig();
  data::Sql drop;
  drop << "drop table " << data::Table("T_USER");
  Exec(drop);
  WithRequest([&](RequestContext& ctx, data::Connection& conn) {
    std::string error;
    EXPECT_EQ(funAdmMailAlias1(ctx, conn, "3", "D:\\", "suzuki", "new", "1", "", "0", error), -1);
    EXPECT_EQ(error.rfind("Com052_funAdmMailAlias1\r\n[Com_funSelect]", 0), 0u) << error;
  });
}

ORVANE_DB_TEST_SUITE(MailDb);
ORVANE_DB_TEST_SUITE(MailAlias);

}  // namespace
}  // namespace orvane::accounts
