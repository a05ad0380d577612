// SIGTERM to a real `orvane serve` while a changing request waits for a
// database lock: the request still gets its answer, new connections are
// refused, and the process exits 0.
#include <gtest/gtest.h>
#include <httplib.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>

#include <fstream>
#include <sstream>
#include <thread>

#include "support/binary.h"
#include "support/raw_client.h"
#include "support/temp_dir.h"

extern char** environ;

namespace orvane {
namespace {

using testing::FreePort;

using namespace std::chrono_literals;

std::string ReadFile(const std::string& path) {
  std::ifstream in(path);
  std::stringstream s;
  s << in.rdbuf();
  return s.str();
}

// Waits up to `limit` for `pid` to exit; kills it if it does not.
int ExitStatus(pid_t pid, std::chrono::seconds limit) {
  int status = 0;
  for (auto end = std::chrono::steady_clock::now() + limit; std::chrono::steady_clock::now() < end;) {
    if (::waitpid(pid, &status, WNOHANG) == pid) return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    std::this_thread::sleep_for(20ms);
  }
  ::kill(pid, SIGKILL);
  ::waitpid(pid, &status, 0);
  return -2;
}

TEST(Shutdown, SigtermLetsTheRequestInFlightFinishThenExitsZero) {
  testing::TempDir dir;
  std::string config = dir.Write("ORVANE.ini",
                                 "LOCAL_DB_DSN=shutdown_demo\nMAINFORM_BACK_COLOR=FFFFFF\nML_MODE=0\nML_USEFLG=0\n"
                                 "ML_ADDUSEFLG=0\nML_ISLOCAL=True\nML_SERVER=x\nML_SERVERIP=127.0.0.1\n"
                                 "ML_EXEPROXY_PORT=5300\nML_FOLDER=" +
                                     dir.File("mail") + "\nJNJI_MODE=0\n");
  const std::string db = dir.File("orvane.db");
  dir.Write("odbc.ini", "[shutdown_demo]\nDriver=SQLite3\nDatabase=" + db + "\nJournalMode=WAL\nTimeout=5000\n");
  ASSERT_EQ(std::system((std::string(ORVANE_BINARY) + " init-db --demo --config " + config + " >/dev/null").c_str()),
            0);

  const int port = FreePort();
  const std::string listen = "127.0.0.1:" + std::to_string(port), log = dir.File("serve.log");
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 2, log.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
  std::vector<std::string> args = {ORVANE_BINARY, "serve", "--config", config, "--listen", listen, "--threads", "2"};
  std::vector<char*> argv;
  for (auto& a : args) argv.push_back(a.data());
  argv.push_back(nullptr);
  pid_t pid = 0;
  ASSERT_EQ(posix_spawn(&pid, ORVANE_BINARY, &files, nullptr, argv.data(), environ), 0);
  posix_spawn_file_actions_destroy(&files);
  for (int i = 0; i < 1000 && ReadFile(log).find("orvane: serving") == std::string::npos; ++i)
    std::this_thread::sleep_for(10ms);
  ASSERT_NE(ReadFile(log).find("orvane: serving"), std::string::npos) << ReadFile(log);

  httplib::Client client("127.0.0.1", port);
  client.set_read_timeout(20);
  auto login = client.Post("/login", "User_cd=admin&User_PS=admin", "application/x-www-form-urlencoded");
  ASSERT_TRUE(login);
  ASSERT_EQ(login->body, "OK");
  std::string cookie = login->get_header_value("Set-Cookie");
  cookie = cookie.substr(0, cookie.find(';'));

  // Another program holds SQLite's write lock: the change waits for it.
  FILE* holder = ::popen(("sqlite3 " + db).c_str(), "w");
  ASSERT_TRUE(holder);
  std::fputs(("BEGIN IMMEDIATE;\n.system touch " + dir.File("locked") + "\n").c_str(), holder);
  std::fflush(holder);
  for (int i = 0; i < 500 && !std::ifstream(dir.File("locked")); ++i) std::this_thread::sleep_for(10ms);
  ASSERT_TRUE(std::ifstream(dir.File("locked")));

  std::string answer = "(none)";
  std::thread change([&] {
    auto res = client.Post("/orvane", {{"Cookie", cookie}}, "ReqNo=213&User_cd=yamada&User_Menu=%2F01%2F",
                           "application/x-www-form-urlencoded");
    if (res) answer = res->body;
  });
  std::this_thread::sleep_for(500ms);  // the change waits on the lock
  ::kill(pid, SIGTERM);
  std::this_thread::sleep_for(300ms);
  testing::RawClient late(port, 2s);  // no longer accepted
  EXPECT_FALSE(late.connected() && late.Send("GET /healthz HTTP/1.1\r\n\r\n") &&
               late.ReadAll().find("200 OK") != std::string::npos);
  ::pclose(holder);  // the lock goes; the change goes on
  change.join();
  EXPECT_EQ(answer, "OK");
  EXPECT_EQ(ExitStatus(pid, 30s), 0) << ReadFile(log);
  EXPECT_NE(ReadFile(log).find("orvane: stopped"), std::string::npos) << ReadFile(log);
}

}  // namespace
}  // namespace orvane
