// Mail accounts through a real exe-proxy peer and through real scripts
// standing in for adduser.exe.
#include "accounts/mail_account.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <optional>

#include "support/exe_proxy_peer.h"
#include "support/mail_env.h"
#include "support/status_code.h"

namespace orvane::accounts {
namespace {

using orvane::testing::Code;
using orvane::testing::ExeProxyPeer;
using orvane::testing::MailEnv;
using orvane::testing::ReadFile;

const UserForm kUser{.user_cd = "suzuki", .user_kj = "鈴木", .user_kn = "スズキ", .user_ps = "pw1"};

TEST(AdmMailMemberProxy, SendsEachModesCommandLineAndJudgesTheReply) {
  using B = ExeProxyPeer::Behaviour;
  using Sent = std::vector<std::string>;
  const std::string add = "SPEXE D:\\IMail\\adduser.exe -u suzuki -p pw1\r\n", quit = "QUIT\r\n";
  struct Case {
    const char* mode;
    std::optional<B> peer;  // unset: nothing listening
    const char* scripted;   // the SPEXE reply
    short status;
    const char* reply;  // the error text; "before" when left as it was
    Sent sent;
  } cases[] = {
      // Modes 1 and 2's commands: user_registration_test's 205 table.
      {"3", B::kServe, "ok: added", 0, "before", {add + quit}},
      // "OK:" later in the line is a refusal, and no QUIT follows one.
      {"3", B::kServe, "user exists OK: no", -1, "user exists OK: no", {add}},
      {"4", B::kServe, "", -1, "funAdmMailMember\r\nInvalid Case", {}},
      {"3", std::nullopt, "", -1, "Connect Error(-111)", {}},
      {"3", B::kCloseOnConnect, "", -1, "Socket Read Error(-104)", {""}},
      {"3", B::kSilent, "", -1, "Socket Read Error(-110)", {add}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.reply);
    MailEnv env;
    std::optional<ExeProxyPeer> peer(std::in_place, env.dir().path(), "D:\\IMail\\", c.peer.value_or(B::kServe));
    env.Ini("ML_SERVERIP=127.0.0.1\n" + peer->Ini(1));
    peer->QueueSpexeReplies({c.scripted});
    if (!c.peer) peer.reset();
    std::string reply = "before", output;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Code(funAdmMailMember(env.Context(), c.mode, "D:\\IMail\\", kUser, output), reply), c.status);
    // A silent proxy ends at the configured second, far from a hang.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(reply, c.reply);
    if (peer) {
      EXPECT_EQ(peer->Transcripts(), c.sent);
    }
  }
}

TEST(AdmMailMemberLocal, RunsTheToolWithoutAShellFromAFolderWithABlank) {
  const std::string shell = "x;touch${IFS}pwned&&touch>z`touch${IFS}q`", add = "-u\nsuzuki\n-p\npw1\n";
  struct Case {
    const char* mode;
    std::string password;
    const char* tool;  // run after logging its arguments; nullptr: no tool there
    short status;
    const char* output;  // "untouched" when left as it was
    const char* error;   // the failure's text: a refused run's output
    std::string args;    // one argument a line, as the tool received them
  } cases[] = {
      {"1", "pw1", "echo 'OK: done'", 0, "OK: done\n", "", "-kill\n-u\nsuzuki\n"},
      {"2", "pw1", "echo 'OK: done'", 0, "OK: done\n", "", "-m\n-u\nsuzuki\n-p\npw1\n"},
      // Shell characters stay one literal argument: nothing is run.
      {"3", shell, "echo 'OK: done'", 0, "OK: done\n", "", "-u\nsuzuki\n-p\n" + shell + "\n"},
      {"3", "pw1", "echo 'OK: done'; exit 3", -1, "OK: done\n", "OK: done\n", add},
      {"3", "pw1", "echo 'user exists'", -1, "user exists\n", "user exists\n", add},
      {"3", "pw1", "sleep 30", -1, "Execute Timeout(1)", "Execute Timeout(1)", add},
      {"3", "pw1", nullptr, -1, "Execute Error(2)", "Execute Error(2)", ""},
      {"4", "pw1", "echo 'OK: done'", -1, "untouched", "", ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.output);
    MailEnv env;
    env.Ini("ML_ISLOCAL=true\nML_EXEPROXY_TIMEOUT=1\n");
    if (c.tool) {
      WriteTool(env.dir(), "mail tools/adduser.exe",
                "for a in \"$@\"; do printf '%s\\n' \"$a\" >> \"$(dirname \"$0\")/args.log\"; done\n" +
                    std::string(c.tool) + "\n");
    }
    UserForm user = kUser;
    user.user_ps = c.password;
    std::string output = "untouched", error, folder = env.dir().File("mail tools/");
    std::replace(folder.begin(), folder.end(), '/', '\\');  // as the system writes it
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(Code(funAdmMailMember(env.Context(), c.mode, folder, user, output), error), c.status);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(output, c.output);
    EXPECT_EQ(error, c.error);
    EXPECT_EQ(ReadFile(env.dir().File("mail tools/args.log")), c.args);
    for (const char* planted : {"pwned", "z", "q", "mail tools/pwned", "mail tools/z", "mail tools/q"})
      EXPECT_FALSE(std::filesystem::exists(env.dir().File(planted)));
  }
}

}  // namespace
}  // namespace orvane::accounts
