// Mailing lists on real folders, reached directly and through a real
// exe-proxy peer that serves the same folders: every case runs both ways.
#include "accounts/mail_lists.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "accounts/mail_list_members.h"
#include "support/exe_proxy_peer.h"
#include "support/mail_env.h"

namespace orvane::accounts {
namespace {

using orvane::testing::ExeProxyPeer;
using orvane::testing::MailEnv;
using Lines = std::vector<std::string>;

constexpr const char* kRemote = "D:\\IMail\\";

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

class MailLists : public ::testing::TestWithParam<bool> {
 protected:
  MailLists() : peer_(env_.dir().File("imail"), kRemote) {
    std::filesystem::create_directories(env_.dir().File("imail/Lists"));
    Configure("2");
  }
  bool Local() const { return GetParam(); }
  void Configure(const std::string& ml_mode, const std::string& drop_key = "") {
    std::string folder = Local() ? env_.dir().File("imail") : std::string(kRemote);
    std::string ini;
    for (auto [k, v] : std::vector<std::pair<std::string, std::string>>{{"ML_FOLDER", folder},
                                                                        {"ML_MODE", ml_mode},
                                                                        {"ML_SERVER", "example.jp"},
                                                                        {"ML_SERVERIP", "127.0.0.1"},
                                                                        {"ML_EXEPROXY_PORT", peer_.Port()},
                                                                        {"ML_ISLOCAL", Local() ? "True" : "False"},
                                                                        {"ML_EXEPROXY_TIMEOUT", "1"}})
      if (k != drop_key) ini += k + "=" + v + "\n";
    env_.Ini(ini);
  }
  void List(const std::string& name, const std::string& members) {
    env_.dir().Write("imail/Lists/" + name + "/users.lst", members);
    env_.dir().Write("imail/Lists/" + name + "/users.txt", members);
  }
  std::string Members(const std::string& name, const std::string& file = "users.lst") {
    return ReadFile(env_.dir().File("imail/Lists/" + name + "/" + file));
  }
  // What the proxy received, one text per connection; nothing in direct mode.
  Lines Sent() { return peer_.Transcripts(); }
  Lines Proxy(Lines sent) { return Local() ? Lines{} : sent; }

  MailEnv env_;
  ExeProxyPeer peer_;
};

INSTANTIATE_TEST_SUITE_P(DirectAndProxy, MailLists, ::testing::Values(true, false),
                         [](const auto& info) { return info.param ? "Direct" : "Proxy"; });

TEST_P(MailLists, ListsTheListFoldersOneLineEach) {
  List("sales", "");
  List("dev", "");
  List("Board", "");
  std::string lists = "stale";
  EXPECT_EQ(funMailListGet(env_.Context(), lists), 0);
  EXPECT_EQ(lists, "Board\r\ndev\r\nsales\r\n");
  EXPECT_EQ(Sent(), Proxy({"FOLIST D:\\IMail\\Lists\\*\r\nQUIT\r\n"}));
}

TEST_P(MailLists, ModeOtherThanTwoFindsNoLists) {
  List("sales", "a@example.jp\r\n");
  Configure("1");
  std::string lists;
  Lines members;
  EXPECT_EQ(funMailListGet(env_.Context(), lists), 0);
  EXPECT_EQ(lists, "");
  EXPECT_EQ(funMailListUserGet(env_.Context(), "sales", members), -1);
  EXPECT_TRUE(members.empty());
  EXPECT_EQ(Sent(), Lines{});
}

TEST_P(MailLists, ReadsMembersAndAListNamePartOfALongerOneCounts) {
  List("sales-east", "a@example.jp\r\nB@example.jp\r\n");
  List("sales", "a@example.jp\r\nB@example.jp\r\n");
  std::filesystem::remove_all(env_.dir().File("imail/Lists/sales"));
  Lines members;
  // "sales" exists only as part of "sales-east": found, but its own member
  // file is missing, so it has no members.
  EXPECT_EQ(funMailListUserGet(env_.Context(), "SALES", members), 0);
  EXPECT_EQ(members, Lines{});
  // The marker on a line of its own leaves a last empty entry.
  EXPECT_EQ(funMailListUserGet(env_.Context(), "sales-east", members), 0);
  EXPECT_EQ(members, (Lines{"a@example.jp", "B@example.jp", ""}));
  EXPECT_EQ(funMailListUserGet(env_.Context(), "north", members), -1);
  EXPECT_EQ(
      Sent(),
      Proxy({"FOLIST D:\\IMail\\Lists\\*\r\nQUIT\r\n", "FREAD D:\\IMail\\Lists\\SALES\\users.lst\r\nQUIT\r\n",
             "FOLIST D:\\IMail\\Lists\\*\r\nQUIT\r\n", "FREAD D:\\IMail\\Lists\\sales-east\\users.lst\r\nQUIT\r\n",
             "FOLIST D:\\IMail\\Lists\\*\r\nQUIT\r\n"}));
}

TEST_P(MailLists, RemovesAddressesGivenInOtherLetterCaseFromBothFiles) {
  List("sales", "a@example.jp\r\nb@example.jp\r\nc@example.jp\r\n");
  std::string error;
  EXPECT_EQ(funDelMailListUser(env_.Context(), "sales", "A@EXAMPLE.JP,c@example.jp", error), 0);
  EXPECT_EQ(error, "");
  EXPECT_EQ(Members("sales"), "b@example.jp\r\n");
  EXPECT_EQ(Members("sales", "users.txt"), "b@example.jp\r\n");
  EXPECT_EQ(Sent(),
            Proxy({"FOLIST D:\\IMail\\Lists\\sales\r\n"
                   "FWRITE D:\\IMail\\Lists\\sales\\users.lst b@example.jp\r\n\r\n[EOF]\r\n"
                   "FWRITE D:\\IMail\\Lists\\sales\\users.txt b@example.jp\r\n\r\n[EOF]\r\n"
                   "QUIT\r\n",
                   "FOLIST D:\\IMail\\Lists\\*\r\nQUIT\r\n", "FREAD D:\\IMail\\Lists\\sales\\users.lst\r\nQUIT\r\n"}));
  // Direct writes go through a temporary file: none is left behind.
  Lines left;
  for (const auto& e : std::filesystem::directory_iterator(env_.dir().File("imail/Lists/sales")))
    left.push_back(e.path().filename().string());
  std::sort(left.begin(), left.end());
  EXPECT_EQ(left, (Lines{"users.lst", "users.txt"}));
}

TEST_P(MailLists, RemovingTheLastMemberLeavesEmptyFiles) {
  List("sales", "a@example.jp\r\n");
  std::string error;
  EXPECT_EQ(funDelMailListUser(env_.Context(), "sales", "a@example.jp", error), 0);
  EXPECT_EQ(Members("sales"), "");
  EXPECT_EQ(Members("sales", "users.txt"), "");
  if (!Local()) {
    EXPECT_EQ(Sent().front(),
              "FOLIST D:\\IMail\\Lists\\sales\r\n"
              "FWRITE D:\\IMail\\Lists\\sales\\users.lst \r\n[EOF]\r\n"
              "FWRITE D:\\IMail\\Lists\\sales\\users.txt \r\n[EOF]\r\nQUIT\r\n");
  }
}

TEST_P(MailLists, AddsOnlyNewAddressesAfterTheCurrentMembers) {
  struct Case {
    const char* addresses;
    const char* clear;
    const char* result;
  } cases[] = {
      {"c@example.jp,A@EXAMPLE.JP,,d@example.jp,c@example.jp", "0",
       "a@example.jp\r\nb@example.jp\r\nc@example.jp\r\nd@example.jp\r\n"},
      {"", "0", "a@example.jp\r\nb@example.jp\r\n"},
      {"", "1", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.addresses + std::string(" clear ") + c.clear);
    List("sales", "a@example.jp\r\nb@example.jp\r\n");
    std::string error;
    EXPECT_EQ(funAddMailListUser(env_.Context(), "sales", c.addresses, c.clear, error), 0);
    EXPECT_EQ(error, "");
    EXPECT_EQ(Members("sales"), c.result);
    EXPECT_EQ(Members("sales", "users.txt"), c.result);
  }
}

TEST_P(MailLists, RefusesChangesWithTheirOwnErrorTexts) {
  List("sales", "a@example.jp\r\n");
  struct Case {
    const char* list;
    const char* addresses;
    const char* del_error;
    const char* add_error;
  } cases[] = {
      {" ", "x@example.jp", "メーリングリスト名が空です。", "メーリングリスト名が空です。"},
      {"sales", " ", "削除者がいません", ""},
      {"north", "x@example.jp", "List Exist Error(0)", "List Exist Error(0)"},
      {"..", "x@example.jp", "List Exist Error(0)", "List Exist Error(0)"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.list);
    std::string del_error, add_error;
    EXPECT_EQ(funDelMailListUser(env_.Context(), c.list, c.addresses, del_error), -1);
    EXPECT_EQ(del_error, c.del_error);
    EXPECT_EQ(funAddMailListUser(env_.Context(), c.list, c.addresses, "1", add_error), *c.add_error ? -1 : 0);
    EXPECT_EQ(add_error, c.add_error);
  }
  EXPECT_EQ(Members("sales"), "");  // only the clearing add wrote
}

TEST_P(MailLists, EachMissingKeyGivesItsOwnCode) {
  struct Case {
    const char* key;
    const char *get, *user_get, *del, *add;
  } cases[] = {
      {"ML_FOLDER", "ERROR:READINFOFILE_MAILLIST_FOLDER", "ERROR:READINFOFILE_MAILLISTUSER_FOLDER",
       "ERROR:READINFOFILE_DELMAILLIST_FOLDER", "ERROR:READINFOFILE_ADDMAILLIST_FOLDER"},
      {"ML_MODE", "ERROR:READINFOFILE_MAILLIST_MODE", "ERROR:READINFOFILE_MAILLIST_MODE",
       "ERROR:READINFOFILE_MAILLIST_MODE", "ERROR:READINFOFILE_MAILLIST_MODE"},
      {"ML_SERVER", "", "", "ERROR:READINFOFILE_DELMAILLIST_SERVER", ""},
      {"ML_SERVERIP", "ERROR:READINFOFILE_MAILLIST_SERVERIP", "ERROR:READINFOFILE_MAILLISTUSER_SERVERIP",
       "ERROR:READINFOFILE_DELMAILLIST_SERVERIP", "ERROR:READINFOFILE_ADDMAILLIST_SERVERIP"},
      {"ML_EXEPROXY_PORT", "ERROR:READINFOFILE_MAILLIST_PORT", "ERROR:READINFOFILE_MAILLISTUSER_PORT",
       "ERROR:READINFOFILE_DELMAILLIST_PORT", "ERROR:READINFOFILE_ADDMAILLIST_PORT"},
      {"ML_ISLOCAL", "ERROR:READINFOFILE_MAILLIST_ISLOCAL", "ERROR:READINFOFILE_MAILLISTUSER_ISLOCAL",
       "ERROR:READINFOFILE_DELMAILLIST_ISLOCAL", "ERROR:READINFOFILE_ADDMAILLIST_ISLOCAL"},
  };
  List("sales", "a@example.jp\r\n");
  for (const Case& c : cases) {
    SCOPED_TRACE(c.key);
    Configure("2", c.key);
    std::string text, error;
    Lines members;
    RequestContext& get = env_.Context();
    funMailListGet(get, text);
    EXPECT_EQ(get.response(), c.get);
    RequestContext& user_get = env_.Context();
    funMailListUserGet(user_get, "sales", members);
    EXPECT_EQ(user_get.response(), c.user_get);
    RequestContext& del = env_.Context();
    funDelMailListUser(del, "sales", "x@example.jp", error);
    EXPECT_EQ(del.response(), c.del);
    RequestContext& add = env_.Context();
    funAddMailListUser(add, "sales", "x@example.jp", "0", error);
    EXPECT_EQ(add.response(), c.add);
  }
}

}  // namespace
}  // namespace orvane::accounts
