// The demo installation's mail server (scripts/demo-mail-tool) as orvane
// runs it: an installation written by scripts/lib/demo_install.sh into a
// temporary folder, the database of `orvane init-db --demo`, and the user
// page's requests through `orvane request`. After each step the tools' state
// files and the mailing-list files say what the mail server was asked.
#include <gtest/gtest.h>
#include <openssl/evp.h>
#include <unistd.h>

#include <cctype>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "accounts/tool_runner.h"
#include "support/binary.h"
#include "support/mail_env.h"
#include "support/temp_dir.h"

namespace orvane::accounts {
namespace {

using testing::ReadFile;
using testing::RunBinary;
using testing::TempDir;

std::string Sha256Hex(std::string_view text) {
  unsigned char digest[EVP_MAX_MD_SIZE];
  unsigned int size = 0;
  EVP_Digest(text.data(), text.size(), digest, &size, EVP_sha256(), nullptr);
  std::string hex;
  for (unsigned int i = 0; i < size; ++i) {
    char byte[3];
    std::snprintf(byte, sizeof byte, "%02x", digest[i]);
    hex += byte;
  }
  return hex;
}

// Every byte but letters and digits as %XX: the query reaches the shell of
// RunBinary as plain text.
std::string Encode(std::string_view value) {
  std::string out;
  for (unsigned char c : value) {
    char hex[4];
    std::snprintf(hex, sizeof hex, "%%%02X", c);
    out += std::isalnum(c) ? std::string(1, static_cast<char>(c)) : std::string(hex);
  }
  return out;
}

// "name=value" per field, each value encoded; a name carries its "&".
std::string Query(const std::vector<std::pair<std::string, std::string>>& fields) {
  std::string q;
  for (const auto& [name, value] : fields) q += name + "=" + Encode(value);
  return q;
}

// The demo installation, written by the script the demo itself uses.
class DemoInstallation {
 public:
  DemoInstallation() {
    // unixODBC keeps a data source's values by name for a while: a name per run.
    static int count = 0;
    std::string dsn = "orvane_demo_mail_" + std::to_string(::getpid()) + "_" + std::to_string(++count);
    std::string script = std::string(ORVANE_SOURCE_DIR) + "/scripts/lib/demo_install.sh";
    std::string command = "bash -c 'source \"$1\" && write_demo_installation \"$2\" \"$3\"' demo '" + script + "' '" +
                          dir_.path() + "' " + dsn;
    EXPECT_EQ(std::system(command.c_str()), 0);
  }

  std::string File(const std::string& name) const { return dir_.File(name); }
  std::string Mail(const std::string& name) const { return ReadFile(File("mail/" + name)); }
  // A tool's command line as the registration builds it: the folder in "\" form.
  std::string Tool(const std::string& rest) const { return dir_.path() + "/mail\\" + rest; }
  std::pair<int, std::string> Orvane(const std::string& args) const {
    return RunBinary(args + " --config '" + File("ORVANE.ini") + "'");
  }
  // The answer to `query` (URL-encoded), sent as the demo administrator.
  std::string Request(const std::string& query) const {
    auto [status, answer] = Orvane("request --user admin '" + query + "'");
    EXPECT_EQ(status, 0);
    return answer;
  }

 private:
  TempDir dir_;
};

TEST(DemoMail, RegistersChangesAndDeletesUsersWithAndWithoutMail) {
  DemoInstallation demo;
  ASSERT_EQ(demo.Orvane("init-db --demo").first, 0);
  const std::string signs = "p w $HOME;`id`'\"\\ -p x";  // every word reaches the mail server as typed
  const std::string list = "ito@demo.example.jp\r\n";
  auto account = [](const std::string& password) { return "kimura\t" + Sha256Hex(password) + "\n"; };
  // As the user page sends them; `old` the old mail values (a new user has
  // no alias yet, and its old mail-use flag repeats the new one).
  auto user = [](const char* code, const std::string& id, const std::string& password, const std::string& alias,
                 const char* use_mail, const std::string& old) {
    return "ReqNo=" + std::string(code) + "&User_cd=" + id + "&User_PS=" + Encode(password) + "&Mail_AD=" + alias +
           "&Mail_FL=" + (alias == id ? "0" : "1") + "&Mail_UFL=" + use_mail + "&Ext_TEL=555&Disp_NM=&Mail_NM=" +
           Query({{"&User_KJ", "木村 次郎"}, {"&User_KN", "キムラ ジロウ"}, {"&Post_NM", "係長"}}) + old;
  };
  // After each step: the accounts, the aliases, whether kimura has a mail
  // folder, and sales-west's member list, "|" between them.
  auto state = [&] {
    EXPECT_EQ(demo.Mail("Lists/sales-west/users.lst"), demo.Mail("Lists/sales-west/users.txt"));
    return demo.Mail("accounts") + "|" + demo.Mail("aliases") + "|" +
           (std::filesystem::is_directory(demo.File("mail/users/kimura")) ? "folder" : "no folder") + "|" +
           demo.Mail("Lists/sales-west/users.lst");
  };
  const std::string jiro = "|jiro\tkimura@demo.example.jp\n|folder|",
                    kjiro = "|kjiro\tkimura@demo.example.jp\n|folder|";
  struct Step {
    const char* what;
    std::vector<std::string> queries;
    std::string log;  // the lines this step adds to tools.log
    std::string state;
  };
  const Step steps[] = {
      {"204 with mail and an alias: the account and the alias are made",
       {user("204", "kimura", "pw-1", "jiro", "1", "&OldMail_UFL=1&OldAlias=&OldAlias_FL=0")},
       "adduser.exe -u kimura -p *** => OK: account kimura added\n"
       "addalias.exe -a jiro=kimura@demo.example.jp => alias jiro added\n",
       account("pw-1") + jiro},
      {"205 with a new password and another alias",
       {user("205", "kimura", "pw-2", "kjiro", "1", "&OldMail_UFL=1&OldAlias=jiro&OldAlias_FL=1")},
       "adduser.exe -m -u kimura -p *** => OK: account kimura changed\n"
       "addalias.exe -d jiro => alias jiro deleted\n"
       "addalias.exe -a kjiro=kimura@demo.example.jp => alias kjiro added\n",
       account("pw-2") + kjiro},
      {"205 with a password of blanks and signs",
       {user("205", "kimura", signs, "kjiro", "1", "&OldMail_UFL=1&OldAlias=kjiro&OldAlias_FL=1")},
       "adduser.exe -m -u kimura -p *** => OK: account kimura changed\n",
       account(signs) + kjiro},
      {"207 and 202: kimura joins 0005, which takes the free list sales-west",
       {"ReqNo=207&Group_cd=0005&User_cd=kimura",
        "ReqNo=202&Group_cd=0005&M_LIST=sales-west" + Query({{"&Group_nm", "西日本営業課"}, {"&Disp_NM", "x"}})},
       "",
       account(signs) + kjiro + list + "kimura@demo.example.jp\r\n"},
      {"206: the account, the alias, the mail folder and the list entry go",
       {"ReqNo=206&User_cd=kimura&Mail_UFL=1"},
       "adduser.exe -kill -u kimura => OK: account kimura deleted\naddalias.exe -d kjiro => alias kjiro deleted\n",
       "||no folder|" + list},
      {"204, 205 and 206 without mail ask the mail server nothing",
       {user("204", "ono", "pw-3", "ono", "0", "&OldMail_UFL=0&OldAlias=&OldAlias_FL=0"),
        user("205", "ono", "pw-4", "ono", "0", "&OldMail_UFL=0&OldAlias=ono&OldAlias_FL=0"),
        "ReqNo=206&User_cd=ono&Mail_UFL=0"},
       "",
       "||no folder|" + list},
  };
  std::string log;
  for (const Step& s : steps) {
    SCOPED_TRACE(s.what);
    for (const std::string& q : s.queries) EXPECT_EQ(demo.Request(q), "OK");
    std::string now = demo.Mail("tools.log");
    ASSERT_EQ(now.substr(0, log.size()), log);
    EXPECT_EQ(now.substr(log.size()), s.log);
    log = now;
    EXPECT_EQ(state(), s.state);
  }
}

TEST(DemoMail, AnAliasTheMailServerGaveElsewhereUndoesTheNewAccountAndTheUser) {
  DemoInstallation demo;
  ASSERT_EQ(demo.Orvane("init-db --demo").first, 0);
  std::ofstream(demo.File("mail/aliases")) << "taken\tsomeone@demo.example.jp\n";
  // Sent without the old mail values: the mode table creates the account.
  EXPECT_EQ(demo.Request("ReqNo=204&User_cd=mori&User_PS=pw&Mail_AD=taken&Mail_FL=1&Mail_UFL=1" +
                         Query({{"&User_KJ", "森"}, {"&User_KN", "モリ"}})),
            "ERROR:ADDMAILALIASERROR: alias exists: taken delivers to someone@demo.example.jp\n");
  EXPECT_EQ(
      demo.Mail("tools.log"),
      "adduser.exe -u mori -p *** => OK: account mori added\n"
      "addalias.exe -a taken=mori@demo.example.jp => ERROR: alias exists: taken delivers to someone@demo.example.jp\n"
      "adduser.exe -kill -u mori => OK: account mori deleted\n");
  EXPECT_EQ(demo.Mail("accounts"), "");
  EXPECT_EQ(demo.Mail("aliases"), "taken\tsomeone@demo.example.jp\n");
  EXPECT_EQ(demo.Request("ReqNo=106&User_cd=mori"), ",,,,,,,,,,,");
}

TEST(DemoMail, ToolsAnswerAsAMailServerDoes) {
  DemoInstallation demo;
  struct Case {
    const char* command;  // after the tool folder
    const char* output;
    int result;
  };
  const Case cases[] = {
      {"adduser.exe -u a.b_c-9 -p x", "OK: account a.b_c-9 added\n", 0},
      {"adduser.exe -u a.b_c-9 -p y", "OK: account a.b_c-9 changed\n", 0},
      {"adduser.exe -m -u a.b_c-9 -p", "OK: account a.b_c-9 changed\n", 0},  // no password: kept
      {"adduser.exe -u 01 -p z", "OK: account 01 added\n", 0},               // not the number 1
      {"adduser.exe -kill -u 1", "OK: no account 1\n", 0},
      {"adduser.exe -kill 01", "OK: account 01 deleted\n", 0},  // the exe proxy's form
      {"adduser.exe -u ../x -p x", "ERROR: invalid account name ../x\n", 1},
      {"adduser.exe -z -u b -p x", "ERROR: unknown switch -z\n", 2},
      {"adduser.exe -u b", "ERROR: no password (-p PASSWORD)\n", 2},
      {"addalias.exe -a al=a.b_c-9@demo.example.jp", "alias al added\n", 0},
      {"addalias.exe -a al=a.b_c-9@demo.example.jp", "alias al added\n", 0},
      {"addalias.exe -a al=b@demo.example.jp", "ERROR: alias exists: al delivers to a.b_c-9@demo.example.jp\n", 1},
      {"addalias.exe -d none", "no alias none\n", 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.command);
    ToolRunner runner(std::chrono::seconds(10));
    EXPECT_EQ(runner.Run(demo.Tool(c.command)), c.output);
    EXPECT_EQ(runner.Result(), c.result);
  }
  EXPECT_EQ(demo.Mail("accounts"), "a.b_c-9\t" + Sha256Hex("y") + "\n");
  EXPECT_EQ(demo.Mail("aliases"), "al\ta.b_c-9@demo.example.jp\n");
  EXPECT_FALSE(std::filesystem::exists(demo.File("x")));
}

TEST(DemoMail, ToolsRunSideBySideLoseNoAccount) {
  DemoInstallation demo;
  std::vector<std::thread> threads;
  for (int i = 0; i < 8; ++i) {
    threads.emplace_back([&demo, i] {
      ToolRunner runner(std::chrono::seconds(10));
      runner.Run(demo.Tool("adduser.exe -u u" + std::to_string(i) + " -p x"));
      EXPECT_EQ(runner.Result(), 0);
    });
  }
  for (std::thread& t : threads) t.join();
  std::string accounts = demo.Mail("accounts");
  for (int i = 0; i < 8; ++i)
    EXPECT_NE(accounts.find(std::string(1, 'u').append(std::to_string(i)).append("\t").append(Sha256Hex("x")) + "\n"),
              std::string::npos)
        << accounts;
}

}  // namespace
}  // namespace orvane::accounts
