// The mail routines that read the database, on real SQLite and PostgreSQL
// databases, with real list folders, real scripts and a real exe-proxy peer.
#include <gtest/gtest.h>

#include "accounts/mail_alias.h"
#include "accounts/section_mail_list.h"
#include "support/db_fixture.h"
#include "support/exe_proxy_peer.h"
#include "support/mail_env.h"
#include "support/status_code.h"

namespace orvane::accounts {

using orvane::testing::Code;
namespace {

using orvane::testing::ExeProxyPeer;
using orvane::testing::ReadFile;
using Sent = std::vector<std::string>;

// A new user's alias "new", where there was none.
const UserForm kNewAlias{.user_cd = "suzuki", .mail_ad = "new", .mail_fl = "1"};
const MailBefore kNoAlias{.alias = "", .alias_fl = "0"};

class MailDb : public orvane::testing::DbTest {
 protected:
  // Sections by code and IMAIL_LIST; a null list leaves the column NULL.
  void Sections(std::initializer_list<std::pair<std::string, const char*>> sections) {
    for (const auto& [code, list] : sections) {
      orvane::testing::Row row = {{"SEC_CD", code}, {"JOI_SEC", "0000"}, {"SEC_NM", "S" + code}};
      if (list) row.push_back({"IMAIL_LIST", list});
      Insert("T_SECTION", row);
    }
  }
  void Users() {
    for (auto [id, mail, flag] : {std::tuple{"tanaka", "tk", "1"}, {"sato", "old", "0"}, {"suzuki", "suzu", "1"}})
      Insert("T_USER", {{"USER_ID", id}, {"NAME_KJ", id}, {"MAIL", mail}, {"IMAIL_FLG", flag}});
  }
  void ListFolder(const std::string& name, const std::string& members = "") {
    dir().Write("mail/Lists/" + name + "/users.lst", members);
  }
  void ProxyConfig(const ExeProxyPeer& peer, const std::string& more = "") { WriteConfig(more + peer.Ini(1)); }
  // Runs `body` with a request context and an open connection.
  template <typename F>
  void WithRequest(F body) {
    ConfigFile config(ConfigPath());
    RequestContext ctx(config, session(), app(), clock());
    data::Connection conn;
    std::string error;
    ASSERT_EQ(Code(data::Com_funDbOpen(Dsn(), "", "", conn), error), 0) << error;
    body(ctx, conn);
  }
};

TEST_P(MailDb, ComboOffersTheFreeListsAndTheSectionsOwnDirectAndThroughTheProxy) {
  for (const char* name : {"sales", "dev", "hr  extra words", "#retired", "Board", "north"}) ListFolder(name);
  // Inserted out of order: the scan follows SEC_CD, and the section holding
  // an empty list (0003) ends it, so "north" of 0004 stays free.
  Sections({{"0004", "north"}, {"0003", ""}, {"0001", "SALES"}, {"0002", "dev"}, {"0005", nullptr}});
  // The section's own list (M_List) stays on offer while its folder exists.
  auto offered = [&] {
    for (auto [list, answer] :
         {std::pair{"", "Board,hr,north"}, {"sales", "Board,hr,north,sales"}, {"gone", "Board,hr,north"}})
      EXPECT_EQ(Request(std::string("ReqNo=107&M_List=") + list), answer) << list;
  };
  offered();
  ExeProxyPeer peer(dir().File("mail"), "D:\\IMail\\");
  ProxyConfig(peer, "ML_FOLDER=D:\\IMail\\\n");
  offered();
  EXPECT_EQ(peer.Transcripts(), Sent(3, "FOLIST D:\\IMail\\Lists\\*\r\nQUIT\r\n"));
}

TEST_P(MailDb, DelMailListTakesTheUserOutOfTheSectionsList) {
  ListFolder("sales", "suzuki@example.jp\r\nb@example.jp\r\n");
  Sections({{"0001", " sales "}, {"0002", nullptr}, {"0003", "gone"}});
  WithRequest([&](RequestContext& ctx, data::Connection& conn) {
    std::string error;
    EXPECT_EQ(Code(funDelMailList(ctx, conn, "0001", " SUZUKI "), error), 0);
    EXPECT_EQ(ReadFile(dir().File("mail/Lists/sales/users.lst")), "b@example.jp\r\n");
    EXPECT_EQ(ReadFile(dir().File("mail/Lists/sales/users.txt")), "b@example.jp\r\n");
    EXPECT_EQ(Code(funDelMailList(ctx, conn, "0002", "b"), error), 0);
    EXPECT_EQ(Code(funDelMailList(ctx, conn, "9999", "b"), error), 0);
    EXPECT_EQ(error, "");
    EXPECT_EQ(Code(funDelMailList(ctx, conn, "0003", "b"), error), -1);
    EXPECT_EQ(error, "funDelMailList\r\nList Exist Error(0)");
    EXPECT_EQ(ctx.response(), "");
  });
}

TEST_P(MailDb, AliasIsCheckedThenDeletedThenAddedThroughTheProxy) {
  Users();
  const std::string del = "SPEXE D:\\IMail\\addalias.exe -d s1\r\n", q = "QUIT\r\n";
  const std::string kill = "SPEXE D:\\IMail\\adduser.exe -kill suzuki\r\n";
  auto add = [](std::string alias) { return "SPEXE D:\\IMail\\addalias.exe -a " + alias + "=suzuki@example.jp\r\n"; };
  struct Case {
    const char *mode, *alias, *flag, *old_alias, *old_flag;
    Sent replies;
    short status;
    std::string error;
    Sent sent;
  } cases[] = {
      // Taken aliases, a change and a delete: user_registration_test's requests.
      {"3", "old", "1", "", "0", {"alias added"}, 0, "", {add("old") + q}},  // an inactive alias is free
      {"2", "sato", "0", "s1", "1", {"no alias s1"}, 0, "", {del + q}},      // no check without the flag
      {"2", "new", "1", "s1", "1", {"error"}, -1, "error", {del}},           // a refused delete stops
      // "alias exists" undoes the new account; other failures keep it.
      {"3", "new", "1", "", "0", {"ERROR: Alias Exists"}, -1, "ERROR: Alias Exists", {add("new"), kill}},
      {"3", "new", "1", "", "0", {"ERROR: disk"}, -1, "ERROR: disk", {add("new")}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE("case " + std::to_string(&c - cases));
    ExeProxyPeer peer(dir().path(), "D:\\");
    peer.QueueSpexeReplies(c.replies);
    // The undo's reply is not judged: the peer refuses it and nothing changes.
    peer.QueueSpexeReplies({"ERROR: no such user"});
    ProxyConfig(peer);
    WithRequest([&](RequestContext& ctx, data::Connection& conn) {
      std::string error;
      EXPECT_EQ(Code(funAdmMailAlias1(ctx, conn, c.mode, "D:\\IMail\\",
                                      {.user_cd = "suzuki", .mail_ad = c.alias, .mail_fl = c.flag},
                                      {.alias = c.old_alias, .alias_fl = c.old_flag}),
                     error),
                c.status);
      EXPECT_EQ(error, c.error);
      EXPECT_EQ(ctx.response(), "");
    });
    EXPECT_EQ(peer.Transcripts(), c.sent);
  }
}

TEST_P(MailDb, AliasRunsTheLocalToolsAndUndoesWithTheLocalDeleteForm) {
  Users();
  for (auto [name, output] : {std::pair{"addalias.exe", "alias exists"}, {"adduser.exe", "OK: deleted"}})
    WriteTool(dir(), std::string("tools/") + name,
              "echo \"" + std::string(name) + " $*\" >> \"$(dirname \"$0\")/runs.log\"\necho '" + output + "'\n");
  WriteConfig("ML_ISLOCAL=TRUE\nML_EXEPROXY_TIMEOUT=1\n");
  WithRequest([&](RequestContext& ctx, data::Connection& conn) {
    std::string error;
    EXPECT_EQ(Code(funAdmMailAlias1(ctx, conn, "3", dir().File("tools/"), kNewAlias, kNoAlias), error), -1);
    EXPECT_EQ(error, "alias exists\n");
  });
  EXPECT_EQ(ReadFile(dir().File("tools/runs.log")),
            "addalias.exe -a new=suzuki@example.jp\nadduser.exe -kill -u suzuki\n");
}

TEST_P(MailDb, AliasReportsAMissingServerAndAFailingQuery) {
  Users();
  WriteConfig("ML_SERVER=\n");
  WithRequest([&](RequestContext& ctx, data::Connection& conn) {
    EXPECT_EQ(funAdmMailAlias1(ctx, conn, "3", "D:\\", kNewAlias, kNoAlias).code(), -1);
    EXPECT_EQ(ctx.response(), "ERROR:READINFOFILE_SV_FOLDER");
  });
  WriteConfig();
  data::Sql drop;
  drop << "drop table " << data::Table("T_USER");
  Exec(drop);
  WithRequest([&](RequestContext& ctx, data::Connection& conn) {
    std::string error;
    EXPECT_EQ(Code(funAdmMailAlias1(ctx, conn, "3", "D:\\", kNewAlias, kNoAlias), error), -1);
    EXPECT_EQ(error.rfind("Com052_funAdmMailAlias1\r\n[Com_funSelect]", 0), 0u) << error;
  });
}

ORVANE_DB_TEST_SUITE(MailDb);

}  // namespace
}  // namespace orvane::accounts
