// Two `orvane serve` processes (the real binary) on one PostgreSQL database
// with --sessions database behave as one server: a session and the drawn
// tree are the same on both.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <httplib.h>
#include <netinet/in.h>
#include <spawn.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <fstream>
#include <sstream>
#include <thread>

#include "base/text.h"
#include "support/binary.h"
#include "support/db_fixture.h"

extern char** environ;

namespace orvane {
namespace {

using testing::FreePort;

using testing::Backend;
using testing::DbTest;

// `orvane serve` as a child process, stopped with SIGTERM.
class ServeProcess {
 public:
  ServeProcess(const std::string& config, const std::string& log_path) : port_(FreePort()), log_path_(log_path) {
    std::vector<std::string> args = {ORVANE_BINARY, "serve",    "--config",
                                     config,        "--listen", "127.0.0.1:" + std::to_string(port_),
                                     "--sessions",  "database"};
    std::vector<char*> argv;
    for (std::string& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, 2, log_path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
    ::posix_spawn(&pid_, argv[0], &actions, nullptr, argv.data(), environ);
    posix_spawn_file_actions_destroy(&actions);
    for (int i = 0; i < 200 && !Ready(); ++i) std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  ~ServeProcess() {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }
  bool Ready() {
    auto res = Client().Get("/healthz");
    return res && res->body == "OK";
  }
  std::string Log() const {
    std::ifstream in(log_path_);
    return std::string(std::istreambuf_iterator<char>(in), {});
  }
  httplib::Client Client() const {
    httplib::Client c("127.0.0.1", port_);
    c.set_read_timeout(30);
    return c;
  }
  // The answer of a POST with the session cookie `sid` (when not empty);
  // `cookie` receives the Set-Cookie header.
  std::string Post(const std::string& path, const std::string& sid, const std::string& form,
                   std::string* cookie = nullptr) const {
    httplib::Headers headers;
    if (!sid.empty()) headers.emplace("Cookie", "ORVANE_SID=" + sid);
    auto res = Client().Post(path, headers, form, "application/x-www-form-urlencoded");
    if (!res) return "(no answer)";
    if (cookie) *cookie = res->get_header_value("Set-Cookie");
    return res->body;
  }
  // Each drawn row's SEC_CD and SEC_TREE.
  std::vector<std::string> Tree(const std::string& sid) const {
    auto res = Client().Get("/application/App_A_strSec_hierarchical", {{"Cookie", "ORVANE_SID=" + sid}});
    std::vector<std::string> rows;
    if (!res) return {"(no answer)"};
    for (const std::string& line : text::Split(res->body, "\r\n")) {
      if (line.empty()) continue;
      std::vector<std::string> columns = text::Split(line, "\t");
      rows.push_back(columns[0] + " " + (columns.size() > 5 ? columns[5] : "?"));
    }
    return rows;
  }

 private:
  int port_;
  std::string log_path_;
  pid_t pid_ = -1;
};

using Instances = DbTest;

TEST_P(Instances, ShareSessionsAndTheDrawnTree) {
  std::ostringstream init;
  FILE* p = ::popen((std::string(ORVANE_BINARY) + " init-db --demo --config " + ConfigPath() + " 2>&1").c_str(), "r");
  char buf[512];
  for (size_t n; (n = fread(buf, 1, sizeof buf, p)) > 0;) init.write(buf, static_cast<std::streamsize>(n));
  ASSERT_EQ(::pclose(p), 0) << init.str();

  ServeProcess first(ConfigPath(), dir().File("first.log")), second(ConfigPath(), dir().File("second.log"));
  ASSERT_TRUE(first.Ready()) << first.Log();
  ASSERT_TRUE(second.Ready()) << second.Log();
  const std::vector<std::string> demo_tree = {"0000 0000",           "0001 0000/0001", "0004 0000/0001/0004",
                                              "0005 0000/0001/0005", "0002 0000/0002", "0003 0000/0003"};
  std::string cookie;
  ASSERT_EQ(first.Post("/login", "", "User_cd=admin&User_PS=admin", &cookie), "OK") << first.Log();
  const std::string sid = cookie.substr(11, 32);
  ASSERT_EQ(second.Tree(sid), demo_tree) << second.Log();
  struct Step {
    const ServeProcess& server;
    const char* path;
    const char* form;
    const char* answer;
  } steps[] = {
      // A change on the second with the first's login.
      {second, "/orvane", "ReqNo=210&Group_cd1=0002&Group_cd2=0003&Group_cd3=0000", "OK"},
      // A move through the first.
      {first, "/orvane", "ReqNo=212&Group_cd1=0005&Group_cd2=0002", "OK"},
  };
  for (const Step& s : steps) EXPECT_EQ(s.server.Post(s.path, sid, s.form), s.answer) << s.form;
  // The second draws the tree the first changed.
  EXPECT_EQ(second.Tree(sid), (std::vector<std::string>{"0000 0000", "0001 0000/0001", "0004 0000/0001/0004",
                                                        "0003 0000/0003", "0002 0000/0002", "0005 0000/0002/0005"}))
      << second.Log();
  const std::vector<std::string> moved = first.Tree(sid);
  EXPECT_EQ(moved, second.Tree(sid));

  // Logging out on the second ends the session on the first.
  EXPECT_EQ(second.Post("/logout", sid, ""), "OK");
  EXPECT_EQ(first.Post("/orvane", sid, "ReqNo=212&Group_cd1=0005&Group_cd2=0001"), "ERROR:SESSIONCHECK");
  ASSERT_EQ(first.Post("/login", "", "User_cd=admin&User_PS=admin", &cookie), "OK");
  EXPECT_EQ(second.Tree(cookie.substr(11, 32)), moved);  // the refused move changed nothing
}

INSTANTIATE_TEST_SUITE_P(Backends, Instances, ::testing::Values(Backend::kPostgres), testing::BackendName);

}  // namespace
}  // namespace orvane
