// Mailing lists on real folders, reached directly and through a real
// exe-proxy peer that serves the same folders: every case runs both ways.
#include "accounts/mail_lists.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "accounts/mail_list_members.h"
#include "support/exe_proxy_peer.h"
#include "support/mail_env.h"
#include "support/status_code.h"

namespace orvane::accounts {
namespace {

using orvane::testing::Code;
using orvane::testing::ExeProxyPeer;
using orvane::testing::MailEnv;
using Lines = std::vector<std::string>;

const std::string kRemote = "D:\\IMail\\";

class MailLists : public ::testing::TestWithParam<bool> {
 protected:
  MailLists() : peer_(env_.dir().File("imail"), kRemote) {
    std::filesystem::create_directories(env_.dir().File("imail/Lists"));
    Configure("2");
  }
  bool Local() const { return GetParam(); }
  void Configure(const std::string& ml_mode, const std::string& drop_key = "") {
    std::string ini = "ML_FOLDER=" + (Local() ? env_.dir().File("imail") : kRemote) + "\nML_MODE=" + ml_mode +
                      "\nML_SERVER=example.jp\nML_SERVERIP=127.0.0.1\nML_EXEPROXY_PORT=" + peer_.Port() +
                      "\nML_ISLOCAL=" + (Local() ? "True" : "False") + "\nML_EXEPROXY_TIMEOUT=1\n";
    if (size_t at = ini.find(drop_key + "="); !drop_key.empty()) ini.erase(at, ini.find('\n', at) + 1 - at);
    env_.Ini(ini);
  }
  void List(const std::string& name, const std::string& members) {
    env_.dir().Write("imail/Lists/" + name + "/users.lst", members);
    env_.dir().Write("imail/Lists/" + name + "/users.txt", members);
  }
  std::string Members(const std::string& file) {
    return orvane::testing::ReadFile(env_.dir().File("imail/Lists/sales/" + file));
  }
  // What the proxy received since the last look, one text per connection.
  Lines Sent() { return peer_.Transcripts(); }
  Lines Proxy(Lines sent) { return Local() ? Lines{} : sent; }

  MailEnv env_;
  ExeProxyPeer peer_;
};

INSTANTIATE_TEST_SUITE_P(DirectAndProxy, MailLists, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "Direct" : "Proxy"; });

// Mode 2's lists: the 107 answers of mail_db_test, both ways.
TEST_P(MailLists, NoListsOutsideModeTwo) {
  List("sales", "a@example.jp\r\n");
  Configure("1");
  Lines members;
  std::string lists;
  EXPECT_EQ(funMailListGet(env_.Context(), lists).code(), 0);
  EXPECT_EQ(lists, "");
  EXPECT_EQ(funMailListUserGet(env_.Context(), "sales", members).code(), -1);
  EXPECT_TRUE(members.empty());
  EXPECT_EQ(Sent(), Lines{});
}

TEST_P(MailLists, ReadsMembersAndAListNamePartOfALongerOneCounts) {
  List("sales-east", "a@example.jp\r\nB@example.jp\r\n");
  Lines members;
  // "sales" exists only as part of "sales-east": found, but its own member
  // file is missing, so it has no members.
  EXPECT_EQ(funMailListUserGet(env_.Context(), "SALES", members).code(), 0);
  EXPECT_EQ(members, Lines{});
  // The marker on a line of its own leaves a last empty entry.
  EXPECT_EQ(funMailListUserGet(env_.Context(), "sales-east", members).code(), 0);
  EXPECT_EQ(members, (Lines{"a@example.jp", "B@example.jp", ""}));
  EXPECT_EQ(funMailListUserGet(env_.Context(), "north", members).code(), -1);
  EXPECT_EQ(
      Sent(),
      Proxy({"FOLIST D:\\IMail\\Lists\\*\r\nQUIT\r\n", "FREAD D:\\IMail\\Lists\\SALES\\users.lst\r\nQUIT\r\n",
             "FOLIST D:\\IMail\\Lists\\*\r\nQUIT\r\n", "FREAD D:\\IMail\\Lists\\sales-east\\users.lst\r\nQUIT\r\n",
             "FOLIST D:\\IMail\\Lists\\*\r\nQUIT\r\n"}));
}

TEST_P(MailLists, ChangesTheMembersOfBothFiles) {
  const std::string ab = "a@example.jp\r\nb@example.jp\r\n";
  struct Case {
    const char* op;  // "del", or "add" with the clear flag
    std::string members, addresses, result;
    bool writes = true;  // through the proxy; false: it only looks the list up
  } cases[] = {
      // Addresses in other letter case are removed too.
      {"del", ab + "c@example.jp\r\n", "A@EXAMPLE.JP,c@example.jp", "b@example.jp\r\n"},
      {"del", "a@example.jp\r\n", "a@example.jp", ""},  // the last member: empty files
      {"add0", ab, "c@example.jp,A@EXAMPLE.JP,,d@example.jp,c@example.jp", ab + "c@example.jp\r\nd@example.jp\r\n"},
      {"add0", ab, "", ab, false},
      {"add1", ab, "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.op + (" " + c.addresses));
    List("sales", c.members);
    std::string error;
    EXPECT_EQ(Code(c.op[0] == 'd' ? funDelMailListUser(env_.Context(), "sales", c.addresses)
                                  : funAddMailListUser(env_.Context(), "sales", c.addresses, c.op + 3),
                   error),
              0);
    EXPECT_EQ(error, "");
    EXPECT_EQ(Members("users.lst"), c.result);
    EXPECT_EQ(Members("users.txt"), c.result);
    // Through the proxy, "[EOF]" comes on a line of its own after the content.
    std::string wrote = "FOLIST D:\\IMail\\Lists\\sales\r\n";
    for (const std::string file : {"lst", "txt"})
      if (c.writes) wrote += "FWRITE D:\\IMail\\Lists\\sales\\users." + file + " " + c.result + "\r\n[EOF]\r\n";
    if (!Local()) {
      EXPECT_EQ(Sent().front(), wrote + "QUIT\r\n");
    }
    // Direct writes go through a temporary file: none is left behind.
    namespace fs = std::filesystem;
    EXPECT_EQ(std::distance(fs::directory_iterator(env_.dir().File("imail/Lists/sales")), fs::directory_iterator()), 2);
  }
}

TEST_P(MailLists, RefusesChangesWithTheirOwnErrorTexts) {
  List("sales", "a@example.jp\r\n");
  struct Case {
    const char *list, *addresses, *del_error, *add_error;
  } cases[] = {
      {" ", "x@example.jp", "メーリングリスト名が空です。", "メーリングリスト名が空です。"},
      {"sales", " ", "削除者がいません", ""},
      {"north", "x@example.jp", "List Exist Error(0)", "List Exist Error(0)"},
      {"..", "x@example.jp", "List Exist Error(0)", "List Exist Error(0)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.list);
    std::string del_error, add_error;
    EXPECT_EQ(Code(funDelMailListUser(env_.Context(), c.list, c.addresses), del_error), -1);
    EXPECT_EQ(del_error, c.del_error);
    EXPECT_EQ(Code(funAddMailListUser(env_.Context(), c.list, c.addresses, "1"), add_error), *c.add_error ? -1 : 0);
    EXPECT_EQ(add_error, c.add_error);
  }
  EXPECT_EQ(Members("users.lst"), "");  // only the clearing add wrote
}

TEST_P(MailLists, EachMissingKeyGivesItsOwnCode) {
  struct Case {
    const char *key, *get, *user_get, *del, *add;  // after "ERROR:READINFOFILE_"; "": no error
  } cases[] = {
      {"ML_FOLDER", "MAILLIST_FOLDER", "MAILLISTUSER_FOLDER", "DELMAILLIST_FOLDER", "ADDMAILLIST_FOLDER"},
      {"ML_MODE", "MAILLIST_MODE", "MAILLIST_MODE", "MAILLIST_MODE", "MAILLIST_MODE"},
      {"ML_SERVER", "", "", "DELMAILLIST_SERVER", ""},
      {"ML_SERVERIP", "MAILLIST_SERVERIP", "MAILLISTUSER_SERVERIP", "DELMAILLIST_SERVERIP", "ADDMAILLIST_SERVERIP"},
      {"ML_EXEPROXY_PORT", "MAILLIST_PORT", "MAILLISTUSER_PORT", "DELMAILLIST_PORT", "ADDMAILLIST_PORT"},
      {"ML_ISLOCAL", "MAILLIST_ISLOCAL", "MAILLISTUSER_ISLOCAL", "DELMAILLIST_ISLOCAL", "ADDMAILLIST_ISLOCAL"},
  };
  List("sales", "a@example.jp\r\n");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key);
    Configure("2", c.key);
    std::string text;
    Lines members;
    // Each call in a request of its own: the answer text it leaves, which
    // is all that counts here.
    auto answer = [&](auto call) {
      RequestContext& ctx = env_.Context();
      call(ctx).IgnoreError();
      return ctx.response();
    };
    auto code = [](const std::string& code) { return code.empty() ? code : "ERROR:READINFOFILE_" + code; };
    EXPECT_EQ(answer([&](RequestContext& ctx) { return funMailListGet(ctx, text); }), code(c.get));
    EXPECT_EQ(answer([&](RequestContext& ctx) { return funMailListUserGet(ctx, "sales", members); }), code(c.user_get));
    EXPECT_EQ(answer([&](RequestContext& ctx) { return funDelMailListUser(ctx, "sales", "x@example.jp"); }),
              code(c.del));
    EXPECT_EQ(answer([&](RequestContext& ctx) { return funAddMailListUser(ctx, "sales", "x@example.jp", "0"); }),
              code(c.add));
  }
}

}  // namespace
}  // namespace orvane::accounts
