// Restoring deleted users and groups and undoing changes from the change
// history, on real SQLite and PostgreSQL databases, with a real exe-proxy
// peer recording what the mail server is told.
#include <gtest/gtest.h>

#include <functional>
#include <memory>

#include "base/text.h"
#include "restore/restore_deleted.h"
#include "restore/undo.h"
#include "support/db_fixture.h"
#include "support/exe_proxy_peer.h"
#include "support/failure_seam.h"
#include "support/mail_env.h"

namespace orvane {
namespace {

using data::Quoted;
using data::Table;
using orvane::testing::ExeProxyPeer;
using orvane::testing::ReadFile;

class Restore : public orvane::testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    InsertDemo();
    session().Set("PUB_USR_ID", "admin");
  }
  // Runs `call` as the administrator, as the command line and the
  // endpoints do.
  restore::Outcome Run(const std::function<restore::Outcome(RequestContext&)>& call) {
    ConfigFile config(ConfigPath());
    RequestContext ctx(config, session(), app(), clock());
    return call(ctx);
  }
  restore::Outcome RestoreUser(const std::string& id) {
    return Run([&](RequestContext& ctx) { return restore::RestoreUser(ctx, id); });
  }
  restore::Outcome RestoreGroup(const std::string& code) {
    return Run([&](RequestContext& ctx) { return restore::RestoreGroup(ctx, code); });
  }
  restore::Outcome Undo(long entry) {
    return Run([&](RequestContext& ctx) { return restore::Undo(ctx, entry); });
  }
  // The mail server behind a real exe-proxy peer, its folder in the test's.
  void UseMailPeer(const std::string& first_lines = "") {
    mail_ = dir().File("mail");
    peer_ = std::make_unique<ExeProxyPeer>(mail_, mail_ + "\\");
    WriteConfig(first_lines + "ML_ISLOCAL=False\nML_EXEPROXY_TIMEOUT=2\nML_EXEPROXY_PORT=" + peer_->Port() + "\n");
    peer_->QueueSpexeReplies(std::vector<std::string>(10, "OK: deleted added"));
  }
  long LastEntry() {
    return std::stol(Rows(data::Sql() << "select max(ID) as M from " << Table("ORVANE_HISTORY"))[0][0]);
  }
  std::string Lines(const data::Sql& sql) {
    std::string out;
    for (const auto& row : Rows(sql)) out += text::Join(row, "|") + "\n";
    return out;
  }
  // A user's rows in every table a delete clears, passwords left out: a
  // restored user has none.
  std::string UserRows(const std::string& id) {
    return Lines(data::Sql() << "select USER_ID, NAME_KJ, NAME_KN, PASSWORD_YMD, MAIL, IMAIL_FLG, MAIL_USE_FLG,"
                             << " MAIL_NM, EXT_TEL, POST_NM, DSP_NM, POST_CD, UPD_KBN, UPD_YMD, UPD_HMS, UPD_USR from "
                             << Table("T_USER") << " where USER_ID = " << Quoted(id)) +
           Lines(data::Sql() << "select * from " << Table("T_SECMEMBER") << " where USER_ID = " << Quoted(id)
                             << " order by SEC_CD") +
           Lines(data::Sql() << "select * from " << Table("MENU_USER") << " where USER_ID = " << Quoted(id)) +
           Lines(data::Sql() << "select USER_ID, GEN01_YMD, GEN01_USR, GEN02_YMD from " << Table("T_PASSGEN")
                             << " where USER_ID = " << Quoted(id));
  }
  std::string mail_;
  std::unique_ptr<ExeProxyPeer> peer_;

  // The organisation as the pages see it: the tree with each parent's
  // children in order, the members of each group in order, menu rights.
  std::string Organisation() {
    return Lines(data::Sql() << "select SEC_CD, JOI_SEC, SEC_NM, DSP_NM, SEC_TREE, TREE_NM, IMAIL_LIST, BUSHO_CD from "
                             << Table("T_SECTION") << " order by JOI_SEC, SEC_SEQ") +
           Lines(data::Sql() << "select SEC_CD, USER_ID, SEC_KBN, POST_CD, ST_YMD, ED_YMD from " << Table("T_SECMEMBER")
                             << " order by SEC_CD, USER_SEQ") +
           Lines(data::Sql() << "select USER_ID, MENU01, MENU02, MENU03, MENU21, MENU50 from " << Table("MENU_USER")
                             << " order by USER_ID");
  }
};

TEST_P(Restore, AUserComesBackWithMembershipsMenuRightsAndMail) {
  UseMailPeer();
  const std::string& mail = mail_;
  dir().Write("mail/Lists/sales-east/users.lst", "sato@example.jp\r\nyamada@example.jp\r\n");
  // yamada: two memberships (0004 with its list, 0002), menu rights, an
  // account and an alias.
  Exec(data::Sql() << "update " << Table("T_USER") << " set MAIL = 'taro', IMAIL_FLG = '1', MAIL_USE_FLG = '1'"
                   << " where USER_ID = 'yamada'");
  const std::string before = UserRows("yamada");
  ASSERT_NE(before.find("0002|yamada"), std::string::npos) << before;
  ASSERT_EQ(Request("ReqNo=206&User_cd=yamada"), "OK");
  ASSERT_EQ(UserRows("yamada"), "");
  EXPECT_EQ(ReadFile(mail + "/Lists/sales-east/users.lst"), "sato@example.jp\r\n");
  const long deletion = LastEntry();
  peer_->Transcripts();

  restore::Outcome out = RestoreUser("yamada");
  ASSERT_TRUE(out.ok) << out.error << " " << out.message;
  EXPECT_EQ(out.entry, LastEntry());
  EXPECT_EQ(UserRows("yamada"), before);
  // The account (without a password) and the alias as a registration
  // makes them, then the list of 0004 read and written.
  std::vector<std::string> sent = peer_->Transcripts();
  ASSERT_EQ(sent.size(), 5u);
  EXPECT_EQ(sent[0], "SPEXE " + mail + "\\adduser.exe -u yamada -p \r\nQUIT\r\n");
  EXPECT_EQ(sent[1], "SPEXE " + mail + "\\addalias.exe -a taro=yamada@example.jp\r\nQUIT\r\n");
  EXPECT_EQ(ReadFile(mail + "/Lists/sales-east/users.lst"), "sato@example.jp\r\nyamada@example.jp\r\n");
  EXPECT_EQ(Lines(data::Sql() << "select CODE, ANSWER, UNDOES from " << Table("ORVANE_HISTORY") << " where ID = cast("
                              << Quoted(std::to_string(out.entry)) << " as bigint)"),
            "restore-user|OK|" + std::to_string(deletion) + "\n");
  // Back once: a second restore finds the id taken.
  EXPECT_EQ(RestoreUser("yamada").error, "ERROR:RESTORETAKEN");
}

struct Refusal {
  const char* name;
  std::vector<const char*> requests;  // made after the demo, before the restore
  const char* user;
  const char* error;
  const char* message;
};

TEST_P(Restore, AUserRestoreIsRefusedNamingWhatBlocks) {
  const Refusal cases[] = {
      {"id reused",
       {"ReqNo=206&User_cd=sato", "ReqNo=204&User_cd=sato&User_KJ=佐藤 次郎&User_KN=サトウ&User_PS=pw1"},
       "sato",
       "ERROR:RESTORETAKEN",
       "the user id sato has been taken since"},
      {"group gone",
       {"ReqNo=206&User_cd=ito", "ReqNo=203&Group_cd=0005"},
       "ito",
       "ERROR:RESTOREGROUPGONE",
       "the group 0005 of the user is gone"},
      {"mail taken",
       {"ReqNo=206&User_cd=watanabe",
        "ReqNo=204&User_cd=kato&User_KJ=加藤&User_KN=カトウ&User_PS=pw1&Mail_AD=watanabe&Mail_FL=0"},
       "watanabe",
       "ERROR:RESTORETAKEN",
       "the mail address watanabe has been taken since by user kato"},
      {"never deleted", {}, "nobody", "ERROR:RESTORENOTFOUND", "no deleted user nobody within the retention period"},
  };
  WriteConfig("ML_MODE=1\n");
  for (const Refusal& c : cases) {
    SCOPED_TRACE(c.name);
    for (const char* r : c.requests) ASSERT_EQ(Request(r), "OK") << r;
    const std::string before = Organisation() + UserRows(c.user);
    restore::Outcome out = RestoreUser(c.user);
    EXPECT_FALSE(out.ok);
    EXPECT_EQ(out.error, c.error);
    EXPECT_EQ(out.message, c.message);
    EXPECT_EQ(Organisation() + UserRows(c.user), before);
    EXPECT_EQ(Lines(data::Sql() << "select CODE, ANSWER from " << Table("ORVANE_HISTORY") << " where ID = cast("
                                << Quoted(std::to_string(out.entry)) << " as bigint)"),
              std::string("restore-user|") + c.error + "\r\n" + c.message + "\n");
  }
  // Out of the retention period the deletion is no longer restorable.
  ASSERT_EQ(Request("ReqNo=206&User_cd=tanaka"), "OK");
  clock().Set(LocalTime{2024, 7, 1, 9, 0, 0});
  EXPECT_EQ(RestoreUser("tanaka").error, "ERROR:RESTORENOTFOUND");
  WriteConfig("ML_MODE=1\nHISTORY_RETENTION_DAYS=120\n");
  EXPECT_TRUE(RestoreUser("tanaka").ok);
}

TEST_P(Restore, AGroupComesBackUnderItsParentWithItsMembersAndList) {
  UseMailPeer();
  Exec(data::Sql() << "update " << Table("T_SECTION") << " set IMAIL_LIST = 'west' where SEC_CD = '0005'");
  dir().Write("mail/Lists/west/users.lst", "a@example.jp\r\n");
  const std::string before = Organisation();
  ASSERT_EQ(Request("ReqNo=203&Group_cd=0005"), "OK");
  ASSERT_NE(Organisation(), before);
  restore::Outcome out = RestoreGroup("0005");
  ASSERT_TRUE(out.ok) << out.error << " " << out.message;
  EXPECT_EQ(Organisation(), before);
  EXPECT_EQ(ReadFile(dir().File("mail/Lists/west/users.lst")), "a@example.jp\r\nito@example.jp\r\n");

  // The parent gone since: refused, nothing changed.
  for (const char* r : {"ReqNo=203&Group_cd=0005", "ReqNo=203&Group_cd=0004", "ReqNo=203&Group_cd=0001"})
    ASSERT_EQ(Request(r), "OK") << r;
  const std::string without = Organisation();
  out = RestoreGroup("0005");
  EXPECT_EQ(out.error, "ERROR:RESTOREPARENTGONE");
  EXPECT_EQ(out.message, "the parent group 0001 is gone");
  EXPECT_EQ(Organisation(), without);
}

struct UndoCase {
  const char* change;
};

TEST_P(Restore, AnUndoPutsTheOrganisationBackAsItWas) {
  const UndoCase cases[] = {
      {"ReqNo=212&Group_cd1=0004&Group_cd2=0002"},  // a move of a first child
      {"ReqNo=212&Group_cd1=0001&Group_cd2=0003"},  // a move with a subtree
      {"ReqNo=202&Group_cd=0002&Group_nm=総務課&Disp_NM=総務&M_LIST=general"},
      {"ReqNo=210&Group_cd1=0001&Group_cd2=0003&Group_cd3=0000"},
      {"ReqNo=210&Group_cd1=0003&Group_cd2=0001&Group_cd3=0000"},
      {"ReqNo=211&Group_cd=0004&User_cd=yamada&User_cd2=tanaka"},
      {"ReqNo=211&Group_cd=0004&User_cd=tanaka&User_cd2=yamada"},
      {"ReqNo=211&Group_cd=0004&User_cd=sato&User_cd2=tanaka"},
      {"ReqNo=207&Group_cd=0002&User_cd=sato"},
      {"ReqNo=208&Group_cd=0004&User_cd=sato&Primary=0&Post_cd=01&ST_Ymd=20200101&ED_Ymd=20301231"},
      {"ReqNo=209&Group_cd=0004&User_cd=yamada"},
      {"ReqNo=213&User_cd=sato&User_Menu=%2F02%2F03%2F"},
  };
  WriteConfig("ML_MODE=1\n");
  // A department code older than today's length rule: the undo of 202
  // puts it back all the same.
  Exec(data::Sql() << "update " << Table("T_SECTION") << " set BUSHO_CD = 'B0002' where SEC_CD = '0002'");
  for (const UndoCase& c : cases) {
    SCOPED_TRACE(c.change);
    const std::string before = Organisation();
    ASSERT_EQ(Request(c.change), "OK");
    ASSERT_NE(Organisation(), before);
    const long entry = LastEntry();
    restore::Outcome out = Undo(entry);
    ASSERT_TRUE(out.ok) << out.error << " " << out.message;
    EXPECT_EQ(Organisation(), before);
    EXPECT_EQ(Lines(data::Sql() << "select CODE, UNDOES from " << Table("ORVANE_HISTORY") << " where ID = cast("
                                << Quoted(std::to_string(out.entry)) << " as bigint)"),
              "undo|" + std::to_string(entry) + "\n");
    // Undone once: not again.
    EXPECT_EQ(Undo(entry).error, "ERROR:UNDONOTPOSSIBLE");
  }
}

// An undo made of several requests (the move back, then the order among
// the siblings) is one transaction: a failure at any of its statements
// leaves the organisation as the change left it, and the history one
// refusal, not a half-done undo.
TEST_P(Restore, AnUndoFailingAtAnyStatementChangesNothing) {
  WriteConfig("ML_MODE=1\n");
  ASSERT_EQ(Request("ReqNo=212&Group_cd1=0004&Group_cd2=0002"), "OK");
  const long entry = LastEntry();
  const std::string moved = Organisation();
  bool undone = false;
  for (int nth = 1; nth < 60 && !undone; ++nth) {
    SCOPED_TRACE(nth);
    restore::Outcome out;
    {
      orvane::testing::ScopedFailure failure(orvane::testing::Point::kStatement, nth, "HY000", "injected");
      out = Undo(entry);
    }
    undone = out.ok;
    if (undone) break;
    EXPECT_EQ(Organisation(), moved);
    EXPECT_EQ(Lines(data::Sql() << "select count(*) as N from " << Table("ORVANE_HISTORY_ROW") << " where ENTRY_ID = cast("
                                << Quoted(std::to_string(out.entry)) << " as bigint)"),
              "0\n");
  }
  ASSERT_TRUE(undone);
  EXPECT_NE(Organisation(), moved);
}

struct Changed {
  const char* change;
  const char* since;
  const char* message;
};

TEST_P(Restore, AnUndoIsRefusedWhenARowChangedSince) {
  const Changed cases[] = {
      {"ReqNo=202&Group_cd=0002&Group_nm=総務課&Disp_NM=総務部&M_LIST=",
       "ReqNo=202&Group_cd=0002&Group_nm=管理部&Disp_NM=総務部&M_LIST=",
       "group 0002 changed since: name is now 管理部, the change left 総務課"},
      {"ReqNo=208&Group_cd=0004&User_cd=sato&Primary=1&Post_cd=01&ST_Ymd=20180401&ED_Ymd=99999999",
       "ReqNo=209&Group_cd=0004&User_cd=sato", "membership of sato in 0004 was deleted since"},
      {"ReqNo=209&Group_cd=0002&User_cd=yamada", "ReqNo=207&Group_cd=0002&User_cd=yamada",
       "membership of yamada in 0002 was added again since"},
      {"ReqNo=212&Group_cd1=0005&Group_cd2=0002", "ReqNo=212&Group_cd1=0005&Group_cd2=0003",
       "group 0005 changed since: parent is now 0003, the change left 0002"},
  };
  WriteConfig("ML_MODE=1\n");
  for (const Changed& c : cases) {
    SCOPED_TRACE(c.change);
    ASSERT_EQ(Request(c.change), "OK");
    const long entry = LastEntry();
    ASSERT_EQ(Request(c.since), "OK");
    const std::string before = Organisation();
    restore::Outcome out = Undo(entry);
    EXPECT_FALSE(out.ok);
    EXPECT_EQ(out.error, "ERROR:UNDOCHANGED");
    EXPECT_EQ(out.message, c.message);
    EXPECT_EQ(Organisation(), before);
    EXPECT_EQ(Lines(data::Sql() << "select CODE, ANSWER, UNDOES from " << Table("ORVANE_HISTORY") << " where ID = cast("
                                << Quoted(std::to_string(out.entry)) << " as bigint)"),
              std::string("undo|ERROR:UNDOCHANGED\r\n") + c.message + "|\n");
  }
}

ORVANE_DB_TEST_SUITE(Restore);

}  // namespace
}  // namespace orvane
