// Mail accounts through a real exe-proxy peer and through real scripts
// standing in for adduser.exe.
#include "accounts/mail_account.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <sstream>

#include "accounts/tool_runner.h"
#include "support/exe_proxy_peer.h"
#include "support/mail_env.h"

namespace orvane::accounts {
namespace {

using orvane::testing::ExeProxyPeer;
using orvane::testing::MailEnv;

const std::vector<std::string> kUser = {"suzuki", "鈴木", "スズキ", "pw1", "", "", "", "", "", "", ""};

std::string ProxyIni(const std::string& port) {
  return "ML_ISLOCAL=False\nML_SERVERIP=127.0.0.1\nML_EXEPROXY_PORT=" + port + "\nML_EXEPROXY_TIMEOUT=1\n";
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

// An executable script named like the mail server's tool.
void WriteTool(const orvane::testing::TempDir& dir, const std::string& name, const std::string& body) {
  std::string path = dir.Write(name, "#!/bin/sh\n" + body);
  ::chmod(path.c_str(), 0755);
}

// The tool folder as the system writes it: "\" separators, ending in "\".
std::string SystemFolder(const std::string& posix) {
  std::string s = posix + "/";
  for (char& c : s)
    if (c == '/') c = '\\';
  return s;
}

TEST(AdmMailMemberProxy, SendsEachModesCommandLineAndQuitsAfterAnAcceptedReply) {
  struct Case {
    const char* mode;
    const char* sent;
  } cases[] = {
      {"1", "SPEXE D:\\IMail\\adduser.exe -kill suzuki\r\nQUIT\r\n"},
      {"2", "SPEXE D:\\IMail\\adduser.exe -m suzuki -p pw1\r\nQUIT\r\n"},
      {"3", "SPEXE D:\\IMail\\adduser.exe -u suzuki -p pw1\r\nQUIT\r\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.mode);
    MailEnv env;
    ExeProxyPeer peer(env.dir().path(), "D:\\IMail\\");
    peer.QueueSpexeReplies({"ok: user done"});
    env.Ini(ProxyIni(peer.Port()));
    std::string reply = "before";
    EXPECT_EQ(funAdmMailMember(env.Context(), c.mode, "D:\\IMail\\", kUser, reply), 0);
    EXPECT_EQ(reply, "before");
    EXPECT_EQ(peer.Transcripts(), std::vector<std::string>{c.sent});
  }
}

TEST(AdmMailMemberProxy, JudgesTheReplyAndReportsFailuresWithTheSocketCode) {
  using B = ExeProxyPeer::Behaviour;
  using Sent = std::vector<std::string>;
  const std::string add = "SPEXE D:\\IMail\\adduser.exe -u suzuki -p pw1\r\n";
  struct Case {
    const char* name;
    B behaviour;
    const char* scripted;  // the SPEXE reply
    const char* mode;
    short status;
    const char* reply;
    std::optional<Sent> sent;  // unset: not examined (the peer never read it)
  } cases[] = {
      {"lower-case ok: accepted", B::kServe, "ok: added", "3", 0, "", Sent{add + "QUIT\r\n"}},
      {"OK: later in the line refused, no QUIT", B::kServe, "user exists OK: no", "3", -1, "user exists OK: no",
       Sent{add}},
      {"peer closes after connect", B::kCloseOnConnect, "", "3", -1, "Socket Read Error(-104)", std::nullopt},
      {"peer never answers", B::kSilent, "", "3", -1, "Socket Read Error(-110)", Sent{add}},
      {"unknown mode sends nothing", B::kServe, "", "4", -1, "funAdmMailMember\r\nInvalid Case", Sent{}},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MailEnv env;
    ExeProxyPeer peer(env.dir().path(), "D:\\IMail\\");
    peer.SetBehaviour(c.behaviour);
    peer.QueueSpexeReplies({c.scripted});
    env.Ini(ProxyIni(peer.Port()));
    std::string reply;
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(funAdmMailMember(env.Context(), c.mode, "D:\\IMail\\", kUser, reply), c.status);
    // A silent proxy ends at the configured second, far from a hang.
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(reply, c.reply);
    if (c.sent) {
      EXPECT_EQ(peer.Transcripts(), *c.sent);
    }
  }
}

TEST(AdmMailMemberProxy, NothingListeningIsAConnectError) {
  MailEnv env;
  std::string port;
  {
    ExeProxyPeer gone(env.dir().path(), "D:\\");
    port = gone.Port();
  }
  env.Ini(ProxyIni(port));
  std::string reply;
  EXPECT_EQ(funAdmMailMember(env.Context(), "1", "D:\\IMail\\", kUser, reply), -1);
  EXPECT_EQ(reply, "Connect Error(-111)");
}

TEST(AdmMailMemberLocal, RunsTheToolWithoutAShellFromAFolderWithABlank) {
  struct Case {
    const char* mode;
    std::string password;
    const char* args;  // one argument a line, as the tool received them
  } cases[] = {
      {"1", "pw1", "-kill\n-u\nsuzuki\n"},
      {"2", "pw1", "-m\n-u\nsuzuki\n-p\npw1\n"},
      {"3", "pw1", "-u\nsuzuki\n-p\npw1\n"},
      // Shell characters stay one literal argument: nothing is run.
      {"3", "x;touch${IFS}pwned&&touch>z`touch${IFS}q`", "-u\nsuzuki\n-p\nx;touch${IFS}pwned&&touch>z`touch${IFS}q`\n"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.password + " mode " + c.mode);
    MailEnv env;
    env.Ini("ML_ISLOCAL=true\nML_EXEPROXY_TIMEOUT=1\n");
    WriteTool(env.dir(), "mail tools/adduser.exe",
              "for a in \"$@\"; do printf '%s\\n' \"$a\" >> \"$(dirname \"$0\")/args.log\"; done\necho 'OK: done'\n");
    std::vector<std::string> user = kUser;
    user[3] = c.password;
    std::string reply;
    EXPECT_EQ(funAdmMailMember(env.Context(), c.mode, SystemFolder(env.dir().File("mail tools")), user, reply), 0);
    EXPECT_EQ(reply, "OK: done\n");
    EXPECT_EQ(ReadFile(env.dir().File("mail tools/args.log")), c.args);
    for (const char* planted : {"pwned", "z", "q"}) {
      EXPECT_FALSE(std::filesystem::exists(env.dir().File(planted)));
      EXPECT_FALSE(std::filesystem::exists(env.dir().File("mail tools/") + planted));
    }
  }
}

TEST(AdmMailMemberLocal, FailsOnARefusedReplyAnExitCodeOrATimeOut) {
  struct Case {
    const char* name;
    const char* body;
    const char* mode;
    const char* reply;
  } cases[] = {
      {"exit code", "echo 'OK: done'\nexit 3\n", "3", "OK: done\n"},
      {"refused reply", "echo 'user exists'\n", "3", "user exists\n"},
      {"never exits", "sleep 30\n", "3", "Execute Timeout(1)"},
      {"unknown mode runs nothing", "echo 'OK: done'\n", "4", "untouched"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    MailEnv env;
    env.Ini("ML_ISLOCAL=True\nML_EXEPROXY_TIMEOUT=1\n");
    WriteTool(env.dir(), "adduser.exe", c.body);
    std::string reply = "untouched";
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(funAdmMailMember(env.Context(), c.mode, SystemFolder(env.dir().path()), kUser, reply), -1);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(5));
    EXPECT_EQ(reply, c.reply);
  }
}

TEST(ToolRunner, SplitsAtTheFirstExeAndAtBlanks) {
  ToolCommand cmd = SplitToolCommandLine("C:\\Program Files\\IMail\\ADDUSER.EXE  -u a.exe -p x");
  EXPECT_EQ(cmd.program, "C:/Program Files/IMail/ADDUSER.EXE");
  EXPECT_EQ(cmd.args, (std::vector<std::string>{"-u", "a.exe", "-p", "x"}));
}

TEST(ToolRunner, AMissingProgramIsAnExecuteError) {
  ToolRunner runner(std::chrono::seconds(1));
  EXPECT_EQ(runner.Execute2("/nonexistent/adduser.exe -u x", 1), "Execute Error(2)");
  EXPECT_EQ(runner.Result(), kToolNotStarted);
}

}  // namespace
}  // namespace orvane::accounts
