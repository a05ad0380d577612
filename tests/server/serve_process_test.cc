// The real `orvane serve` as child processes: SIGTERM while a change waits
// for a database lock lets it finish, refuses new connections and exits 0;
// two processes on one PostgreSQL database with --sessions database behave
// as one server (a session and the drawn tree the same on both).
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <fstream>
#include <thread>

#include "base/text.h"
#include "support/binary.h"
#include "support/db_fixture.h"
#include "support/mail_env.h"  // ReadFile
#include "support/raw_client.h"

extern char** environ;

namespace orvane {
namespace {

using namespace std::chrono_literals;
using testing::Backend;
using testing::ReadFile;

// `orvane serve --config <config> --listen <free port> <more>`, its
// standard error in `log`, waited for until it says it serves.
class ServeProcess {
 public:
  ServeProcess(const std::string& config, std::string log, std::vector<std::string> more)
      : port_(testing::FreePort()), log_(std::move(log)) {
    std::vector<std::string> args = {ORVANE_BINARY, "serve", "--config", config, "--listen", Listen()};
    args.insert(args.end(), more.begin(), more.end());
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t files;
    posix_spawn_file_actions_init(&files);
    posix_spawn_file_actions_addopen(&files, 2, log_.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::posix_spawn(&pid_, argv[0], &files, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&files);
    for (int i = 0; i < 500 && !Ready(); ++i) std::this_thread::sleep_for(20ms);
  }
  ~ServeProcess() {
    if (pid_ > 0) Stop();
  }
  bool Ready() const { return Log().find("orvane: serving") != std::string::npos; }
  std::string Log() const { return ReadFile(log_); }
  int port() const { return port_; }
  std::string Listen() const { return "127.0.0.1:" + std::to_string(port_); }
  // SIGTERM, then its exit status; -2 when it had to be killed 30 s later.
  int Stop() {
    ::kill(pid_, SIGTERM);
    int status = 0;
    bool exited = false;
    for (auto end = std::chrono::steady_clock::now() + 30s;
         !(exited = ::waitpid(pid_, &status, WNOHANG) == pid_) && std::chrono::steady_clock::now() < end;)
      std::this_thread::sleep_for(20ms);
    if (!exited) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, &status, 0);
    }
    pid_ = -1;
    return !exited ? -2 : WIFEXITED(status) ? WEXITSTATUS(status) : -1;
  }
  // The body of a POST sending `cookie`; `set_cookie` receives the session cookie set.
  std::string Post(const std::string& path, const std::string& cookie, const std::string& form,
                   std::string* set_cookie = nullptr) const {
    httplib::Client client("127.0.0.1", port_);
    client.set_read_timeout(30);
    auto res = client.Post(path, {{"Cookie", cookie}}, form, "application/x-www-form-urlencoded");
    if (res && set_cookie) *set_cookie = res->get_header_value("Set-Cookie").substr(0, 43);
    return res ? res->body : "(no answer)";
  }
  // Each drawn row's SEC_CD and SEC_TREE.
  std::vector<std::string> Tree(const std::string& cookie) const {
    auto res = httplib::Client("127.0.0.1", port_).Get("/application/App_A_strSec_hierarchical", {{"Cookie", cookie}});
    if (!res) return {"(no answer)"};
    std::vector<std::string> rows;
    for (const std::string& line : text::Split(res->body, "\r\n")) {
      std::vector<std::string> columns = text::Split(line, "\t");
      if (!line.empty()) rows.push_back(columns[0] + " " + (columns.size() > 5 ? columns[5] : "?"));
    }
    return rows;
  }

 private:
  int port_;
  std::string log_;
  pid_t pid_ = -1;
};

using Shutdown = testing::DbTest;

TEST_P(Shutdown, SigtermLetsTheRequestInFlightFinishThenExitsZero) {
  ASSERT_EQ(testing::RunBinary("init-db --demo --config " + ConfigPath()).first, 0);
  ServeProcess serve(ConfigPath(), dir().File("serve.log"), {"--threads", "2"});
  ASSERT_TRUE(serve.Ready()) << serve.Log();
  std::string cookie;
  ASSERT_EQ(serve.Post("/login", "", "User_cd=admin&User_PS=admin", &cookie), "OK");

  // Another program holds SQLite's write lock: the change waits for it.
  FILE* holder = ::popen(("sqlite3 " + dir().File("orvane.db")).c_str(), "w");
  ASSERT_TRUE(holder);
  std::fputs(("BEGIN IMMEDIATE;\n.system touch " + dir().File("locked") + "\n").c_str(), holder);
  std::fflush(holder);
  for (int i = 0; i < 500 && !std::ifstream(dir().File("locked")); ++i) std::this_thread::sleep_for(10ms);
  ASSERT_TRUE(std::ifstream(dir().File("locked")));

  std::string answer;
  std::thread change([&] { answer = serve.Post("/orvane", cookie, "ReqNo=213&User_cd=yamada&User_Menu=%2F01%2F"); });
  std::this_thread::sleep_for(500ms);  // the change waits on the lock
  int status = -3;
  std::thread stop([&] { status = serve.Stop(); });
  std::this_thread::sleep_for(300ms);
  testing::RawClient late(serve.port(), 2s);  // no longer accepted
  EXPECT_FALSE(late.connected() && late.Send("GET /healthz HTTP/1.1\r\n\r\n") &&
               late.ReadAll().find("200 OK") != std::string::npos);
  ::pclose(holder);  // the lock goes; the change goes on
  change.join();
  stop.join();
  EXPECT_EQ(answer, "OK");
  EXPECT_EQ(status, 0) << serve.Log();
  EXPECT_NE(serve.Log().find("orvane: stopped"), std::string::npos) << serve.Log();
}

INSTANTIATE_TEST_SUITE_P(Backends, Shutdown, ::testing::Values(Backend::kSqlite), testing::BackendName);

using Instances = testing::DbTest;

TEST_P(Instances, ShareSessionsAndTheDrawnTree) {
  auto [status, out] = testing::RunBinary("init-db --demo --config " + ConfigPath());
  ASSERT_EQ(status, 0) << out;
  ServeProcess first(ConfigPath(), dir().File("first.log"), {"--sessions", "database"}),
      second(ConfigPath(), dir().File("second.log"), {"--sessions", "database"});
  ASSERT_TRUE(first.Ready()) << first.Log();
  ASSERT_TRUE(second.Ready()) << second.Log();
  std::string cookie;
  ASSERT_EQ(first.Post("/login", "", "User_cd=admin&User_PS=admin", &cookie), "OK") << first.Log();
  ASSERT_EQ(second.Tree(cookie), (std::vector<std::string>{"0000 0000", "0001 0000/0001", "0004 0000/0001/0004",
                                                           "0005 0000/0001/0005", "0002 0000/0002", "0003 0000/0003"}))
      << second.Log();
  // A change on the second with the first's login, a move through the first.
  EXPECT_EQ(second.Post("/orvane", cookie, "ReqNo=210&Group_cd1=0002&Group_cd2=0003&Group_cd3=0000"), "OK");
  EXPECT_EQ(first.Post("/orvane", cookie, "ReqNo=212&Group_cd1=0005&Group_cd2=0002"), "OK");
  // The second draws the tree the first changed.
  const std::vector<std::string> moved = {"0000 0000",      "0001 0000/0001", "0004 0000/0001/0004",
                                          "0003 0000/0003", "0002 0000/0002", "0005 0000/0002/0005"};
  EXPECT_EQ(second.Tree(cookie), moved) << second.Log();
  EXPECT_EQ(first.Tree(cookie), moved);

  // Logging out on the second ends the session on the first.
  EXPECT_EQ(second.Post("/logout", cookie, ""), "OK");
  EXPECT_EQ(first.Post("/orvane", cookie, "ReqNo=212&Group_cd1=0005&Group_cd2=0001"), "ERROR:SESSIONCHECK");
  ASSERT_EQ(first.Post("/login", "", "User_cd=admin&User_PS=admin", &cookie), "OK");
  EXPECT_EQ(second.Tree(cookie), moved);  // the refused move changed nothing
}

INSTANTIATE_TEST_SUITE_P(Backends, Instances, ::testing::Values(Backend::kPostgres), testing::BackendName);

}  // namespace
}  // namespace orvane
