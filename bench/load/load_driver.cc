// Concurrent administrators against one real `orvane serve` (loopback,
// bounded time), then the invariant checker on the database it wrote.
//
//   load_driver [--seconds 30] [--clients 8] [--threads 2*clients] [--pg] [--dir DIR] [--keep]
//               [--only read,201,212x,...]
//
// Prepares an installation (configuration, odbc.ini, menu catalogue, the
// demo organisation through `orvane init-db --demo`) on SQLite, or with
// --pg on PostgreSQL (ORVANE_TEST_PG_HOST/_PORT/_DATABASE, a schema of its
// own, dropped at the end unless --keep), starts the server on a free
// port, logs in one administrator session per client (POST /login, cookie
// ORVANE_SID) and lets every client run a random mix of changes and
// queries until the time is up. Prints requests per second, latency
// percentiles and answers by request code, the unexpected answers, and the
// checker's verdict on the live tables. Exit status 0 only when every
// answer was expected and the invariants hold.
#include <arpa/inet.h>
#include <httplib.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "data/db.h"
#include "data/physical_connection.h"
#include "load/invariants.h"
#include "load/load_mix.h"

extern char** environ;

namespace orvane::bench {
namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

struct Options {
  int seconds = 30, clients = 8, threads = 0;  // threads 0: twice the clients
  bool pg = false, keep = false;
  std::string dir = "/tmp/orvane-load";
  std::string orvane = ORVANE_BINARY;
  std::set<std::string> only;  // empty: the whole mix
};

std::string Env(const char* name, const char* fallback) {
  const char* v = std::getenv(name);
  return v && *v ? v : fallback;
}

void Write(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::trunc) << text; }

int Run(const std::vector<std::string>& argv, const std::string& log, pid_t* background = nullptr) {
  std::vector<char*> args;
  for (const std::string& a : argv) args.push_back(const_cast<char*>(a.c_str()));
  args.push_back(nullptr);
  posix_spawn_file_actions_t files;
  posix_spawn_file_actions_init(&files);
  posix_spawn_file_actions_addopen(&files, 1, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  posix_spawn_file_actions_addopen(&files, 2, log.c_str(), O_WRONLY | O_CREAT | O_APPEND, 0644);
  pid_t pid = 0;
  int rc = posix_spawn(&pid, args[0], &files, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&files);
  if (rc != 0) return -1;
  if (background) {
    *background = pid;
    return 0;
  }
  int status = 0;
  waitpid(pid, &status, 0);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

// A port free right now on loopback; the server gets it a moment later.
int FreePort() {
  int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  int port = -1;
  if (bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0 &&
      getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len) == 0)
    port = ntohs(addr.sin_port);
  close(fd);
  return port;
}

std::string PgSection(const std::string& name, const std::string& schema) {
  std::string s = "[" + name + "]\nDriver=PostgreSQL Unicode\nServername=" + Env("ORVANE_TEST_PG_HOST", "127.0.0.1") +
                  "\nPort=" + Env("ORVANE_TEST_PG_PORT", "5432") +
                  "\nDatabase=" + Env("ORVANE_TEST_PG_DATABASE", "orvane_test") +
                  "\nUseServerSidePrepare=0\nProtocol=7.4-2\n";
  if (!schema.empty()) s += "ConnSettings=SET search_path TO " + schema + "\n";
  return s;
}

bool RunAdmin(const std::string& statement) {
  data::Diagnostic diag;
  auto conn = data::PhysicalConnection::Open("orvane_load_admin", "kop47", "kop47", diag);
  if (conn && conn->ExecDirect(statement, diag)) return true;
  std::cerr << "load_driver: " << statement << ": " << diag.sqlstate << " " << diag.message << "\n";
  return false;
}

constexpr char kDsn[] = "orvane_load";

// The installation: configuration, data source, catalogue, demo rows.
bool Prepare(const Options& o, std::string& schema) {
  fs::remove_all(o.dir);
  fs::create_directories(o.dir + "/mail/Lists/general");
  fs::create_directories(o.dir + "/mail/Lists/sales-east");
  // ML_MODE 1: no mail server is told anything; the load is the database's.
  Write(o.dir + "/ORVANE.ini", std::string("LOCAL_DB_DSN=") + kDsn +
                                   "\nMAINFORM_BACK_COLOR=FFFFFF\nML_MODE=1\nML_USEFLG=1\nML_ADDUSEFLG=1\n"
                                   "ML_ISLOCAL=True\nML_SERVER=example.jp\nML_SERVERIP=127.0.0.1\nML_EXEPROXY_PORT=9\n"
                                   "ML_EXEPROXY_TIMEOUT=1\nJNJI_MODE=0\nDAIRI_ONESELFFLG=0\nML_FOLDER=" +
                                   o.dir + "/mail\nML_READ_ATTACH_PATH=" + o.dir + "/attach/read\nML_SEND_ATTACH_PATH=" +
                                   o.dir + "/attach/send\nML_SAVE_ATTACH_PATH=" + o.dir + "/attach/save\n");
  Write(o.dir + "/menuinfo.csv", "01,スケジュール,1\n02,施設予約,1\n21,メール,1\n23,ワークフロー,1\n50,管理者メニュー,1\n");
  if (o.pg) {
    schema = "orvane_load_" + std::to_string(getpid());
    Write(o.dir + "/odbc.ini", PgSection(kDsn, schema) + PgSection("orvane_load_admin", ""));
  } else {
    Write(o.dir + "/odbc.ini", std::string("[") + kDsn + "]\nDriver=SQLite3\nDatabase=" + o.dir +
                                   "/orvane.db\nJournalMode=WAL\nTimeout=5000\n");
  }
  data::UseOdbcIniBeside(o.dir);
  if (o.pg && !RunAdmin("CREATE SCHEMA " + schema)) return false;
  if (Run({o.orvane, "init-db", "--config", o.dir + "/ORVANE.ini", "--demo"}, o.dir + "/init-db.log") != 0) {
    std::cerr << "load_driver: init-db failed, see " << o.dir << "/init-db.log\n";
    return false;
  }
  return true;
}

std::string Login(httplib::Client& client) {
  auto res = client.Post("/login", "User_cd=admin&User_PS=admin", "application/x-www-form-urlencoded");
  if (!res || res->status != 200 || res->body != "OK") return "";
  std::string cookie = res->get_header_value("Set-Cookie");
  size_t at = cookie.find("ORVANE_SID=");
  if (at == std::string::npos) return "";
  size_t end = cookie.find(';', at);
  return cookie.substr(at, end == std::string::npos ? std::string::npos : end - at);
}

double Percentile(std::vector<double>& v, double p) {
  if (v.empty()) return 0;
  size_t i = std::min(v.size() - 1, static_cast<size_t>(p * static_cast<double>(v.size())));
  std::nth_element(v.begin(), v.begin() + static_cast<long>(i), v.end());
  return v[i];
}

int Main(int argc, char** argv) {
  Options o;
  for (int i = 1; i < argc; ++i) {
    std::string a = argv[i];
    auto next = [&]() -> std::string { return i + 1 < argc ? argv[++i] : ""; };
    if (a == "--seconds") o.seconds = std::atoi(next().c_str());
    else if (a == "--clients") o.clients = std::atoi(next().c_str());
    else if (a == "--threads") o.threads = std::atoi(next().c_str());
    else if (a == "--dir") o.dir = next();
    else if (a == "--orvane") o.orvane = next();
    else if (a == "--pg") o.pg = true;
    else if (a == "--keep") o.keep = true;
    else if (a == "--only") {
      std::string list = next();
      for (size_t at = 0; at <= list.size();) {
        size_t comma = std::min(list.find(',', at), list.size());
        o.only.insert(list.substr(at, comma - at));
        at = comma + 1;
      }
    }
    else {
      std::cerr << "usage: load_driver [--seconds N] [--clients N] [--threads N] [--pg] [--dir DIR] [--orvane PATH] "
                   "[--keep] [--only read,201,212x,...]\n";
      return 2;
    }
  }
  // A kept-alive connection holds a server worker until it idles out, so
  // the server needs a worker per connection: each client's own and the
  // second one of its crossed moves.
  if (o.threads == 0) o.threads = 2 * o.clients;
  if (o.seconds <= 0 || o.clients <= 0 || o.threads <= 0) return 2;
  std::string schema;
  if (!Prepare(o, schema)) return 1;

  int port = FreePort();
  pid_t server = 0;
  if (Run({o.orvane, "serve", "--config", o.dir + "/ORVANE.ini", "--listen", "127.0.0.1:" + std::to_string(port),
           "--threads", std::to_string(o.threads)},
          o.dir + "/serve.log", &server) != 0) {
    std::cerr << "load_driver: cannot start " << o.orvane << "\n";
    return 1;
  }
  httplib::Client probe("127.0.0.1", port);
  probe.set_connection_timeout(1);
  probe.set_read_timeout(10);
  bool up = false;
  for (int i = 0; i < 100 && !up; ++i) {
    auto res = probe.Get("/healthz");
    up = res && res->status == 200;
    if (!up) std::this_thread::sleep_for(std::chrono::milliseconds(100));
  }
  if (!up) {
    std::cerr << "load_driver: the server did not answer /healthz, see " << o.dir << "/serve.log\n";
    kill(server, SIGKILL);
    return 1;
  }

  std::vector<std::string> cookies;
  for (int c = 0; c < o.clients; ++c) {
    cookies.push_back(Login(probe));
    if (cookies.back().empty()) {
      std::cerr << "load_driver: login as admin failed\n";
      kill(server, SIGKILL);
      return 1;
    }
  }

  SharedView view;
  std::vector<ClientStats> stats(o.clients);
  std::vector<std::thread> clients;
  const auto start = Clock::now(), stop = start + std::chrono::seconds(o.seconds);
  for (int c = 0; c < o.clients; ++c)
    clients.emplace_back([&, c] { RunClient(c, "127.0.0.1", port, cookies[c], stop, o.only, view, stats[c]); });
  for (auto& t : clients) t.join();
  const double elapsed = std::chrono::duration<double>(Clock::now() - start).count();

  kill(server, SIGTERM);
  int status = 0;
  waitpid(server, &status, 0);

  ClientStats all;
  for (ClientStats& s : stats) all.Merge(s);
  long total = 0;
  for (auto& [code, lat] : all.latency_us) total += static_cast<long>(lat.size());
  std::printf("backend %s, %d clients, %d server threads, %.1f s: %ld requests, %.0f requests/s\n",
              o.pg ? "PostgreSQL" : "SQLite", o.clients, o.threads, elapsed, total, static_cast<double>(total) / elapsed);
  std::printf("\n| code | requests | p50 ms | p90 ms | p99 ms | max ms | answers |\n|---|---:|---:|---:|---:|---:|---|\n");
  for (auto& [code, lat] : all.latency_us) {
    std::string answers;
    for (auto& [answer, n] : all.answers[code]) answers += (answers.empty() ? "" : ", ") + answer + " " + std::to_string(n);
    std::printf("| %s | %zu | %.2f | %.2f | %.2f | %.2f | %s |\n", code.c_str(), lat.size(), Percentile(lat, 0.5) / 1000,
                Percentile(lat, 0.9) / 1000, Percentile(lat, 0.99) / 1000, Percentile(lat, 1.0) / 1000,
                answers.c_str());
  }
  std::printf("\nunexpected answers: %zu\n", all.unexpected.size());
  for (size_t i = 0; i < all.unexpected.size() && i < 20; ++i) std::printf("  %s\n", all.unexpected[i].c_str());
  std::printf("server exit: %s\n", WIFEXITED(status) ? std::to_string(WEXITSTATUS(status)).c_str() : "signal");

  InvariantReport report;
  Status checked = CheckInvariants(kDsn, "", {"admin", "yamada", "sato", "ito", "watanabe", "tanaka"}, report);
  data::ClosePooledConnections();
  if (!checked.ok()) {
    std::printf("invariants: cannot read the tables: %s\n", checked.trail().c_str());
  } else {
    std::printf("invariants: %s\n", report.Text().c_str());
  }
  if (o.pg && !o.keep) RunAdmin("DROP SCHEMA " + schema + " CASCADE");
  return checked.ok() && report.Holds() && all.unexpected.empty() ? 0 : 1;
}

}  // namespace
}  // namespace orvane::bench

int main(int argc, char** argv) { return orvane::bench::Main(argc, argv); }
