// session_bench: what database sessions cost, over HTTP keep-alive on
// loopback, on PostgreSQL. Two servers in one process on one database, one
// with memory sessions and one with database sessions (a single instance
// each), take turns in the same run:
//   read:         GET ReqNo=105 (one group), no cookie: needs no session
//   read+cookie:  the same with the login's cookie: one keyed select
//   change:       POST ReqNo=210 swapping two groups, with the cookie (the
//                 session check, the tree version raised, the tree drawn)
// Goal: the read without a cookie within 5% of memory sessions.
//
// Then the administrator right read from the database on every request: a
// third server (memory sessions, the default rule: every request checks)
// against the first (anonymous reads: no check), both with the login's
// cookie, on
//   001:  server information (no statement of its own)
//   101:  the list of all groups (one select)
// Goal: within 5%.
//
//   session_bench [seconds-per-phase] [client-threads] [rounds]
// PostgreSQL from ORVANE_TEST_PG_HOST/_PORT/_DATABASE (default 127.0.0.1,
// 5432, orvane_test; login kop47/kop47); the tables go into the schema
// orvane_session_bench, made anew.
#include <httplib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <thread>
#include <vector>

#include "data/demo_data.h"
#include "data/physical_connection.h"
#include "data/schema.h"
#include "org/tree_change.h"
#include "server/database_session_store.h"
#include "server/http_server.h"

namespace {

using namespace orvane;  // NOLINT: a small driver

std::string Env(const char* name, const char* fallback) {
  const char* v = std::getenv(name);
  return v && *v ? v : fallback;
}

void Check(bool ok, const std::string& what) {
  if (ok) return;
  std::fprintf(stderr, "session_bench: %s\n", what.c_str());
  std::exit(1);
}

struct Target {
  std::string method, path, body, cookie, expected;
};

double Drive(int port, const Target& t, int threads, double seconds, long long& failures) {
  std::atomic<long long> ok{0}, bad{0};
  auto start = std::chrono::steady_clock::now();
  auto deadline = start + std::chrono::duration<double>(seconds);
  std::vector<std::thread> workers;
  for (int i = 0; i < threads; ++i) {
    workers.emplace_back([&] {
      httplib::Client client("127.0.0.1", port);
      client.set_keep_alive(true);
      client.set_tcp_nodelay(true);
      httplib::Headers headers;
      if (!t.cookie.empty()) headers.emplace("Cookie", "ORVANE_SID=" + t.cookie);
      while (std::chrono::steady_clock::now() < deadline) {
        auto res = t.method == "GET" ? client.Get(t.path, headers)
                                     : client.Post(t.path, headers, t.body, "application/x-www-form-urlencoded");
        (res && res->body.starts_with(t.expected) ? ok : bad)++;
      }
    });
  }
  for (auto& w : workers) w.join();
  failures += bad.load();
  return ok.load() / std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
}

struct Instance {
  Instance(const std::string& config, std::unique_ptr<SessionStore> sessions, bool open_reads = true)
      : state(config, std::move(sessions), SystemClock::Instance(), nullptr), server(state, {"127.0.0.1", 0, 4}) {
    // Queries open to all (--allow-anonymous-reads): the read without a
    // cookie is the request that needs no session at all, and no read asks
    // for the right. Under the default rule every request needs the
    // administrator's session and reads the right.
    state.access.anonymous_reads = open_reads;
    LoadApplicationValues(state.config, state.app).IgnoreError();  // no catalogue: no menus
    Check(org::LoadSecHierarchical(state.config, state.app).ok(), "drawing the tree");
    std::string error;
    port = server.Bind(error);
    thread = std::thread([this] { server.Run(); });
    while (!server.IsRunning()) std::this_thread::yield();
    httplib::Client client("127.0.0.1", port);
    auto res = client.Post("/login", "User_cd=admin&User_PS=admin", "application/x-www-form-urlencoded");
    Check(res && res->body == "OK", "login: " + (res ? res->body : std::string("no answer")));
    cookie = res->get_header_value("Set-Cookie").substr(11, 32);
  }
  ~Instance() {
    server.Stop();
    thread.join();
  }
  ServerState state;
  HttpServer server;
  int port = -1;
  std::string cookie;
  std::thread thread;
};

}  // namespace

int main(int argc, char** argv) {
  const double seconds = argc > 1 ? std::atof(argv[1]) : 2;
  const int threads = argc > 2 ? std::atoi(argv[2]) : 2;
  const int rounds = argc > 3 ? std::atoi(argv[3]) : 3;
  std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("orvane-session-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  const std::string pg = "Driver=PostgreSQL Unicode\nServername=" + Env("ORVANE_TEST_PG_HOST", "127.0.0.1") +
                         "\nPort=" + Env("ORVANE_TEST_PG_PORT", "5432") +
                         "\nDatabase=" + Env("ORVANE_TEST_PG_DATABASE", "orvane_test") +
                         "\nUseServerSidePrepare=0\nProtocol=7.4-2\n";
  std::ofstream(dir / "odbc.ini") << "[bench_admin]\n"
                                  << pg << "\n[bench_sessions]\n"
                                  << pg << "ConnSettings=SET search_path TO orvane_session_bench\n";
  std::ofstream(dir / "ORVANE.ini") << "LOCAL_DB_DSN=bench_sessions\nJNJI_MODE=0\nML_MODE=2\nML_FOLDER=/srv/imail\n"
                                       "MAINFORM_BACK_COLOR=C0D0E0\nML_USEFLG=1\nML_ISLOCAL=True\nML_ADDUSEFLG=0\n"
                                       "ML_EXEPROXY_PORT=5300\nML_SERVERIP=127.0.0.1\nML_SERVER=example.jp\n";
  data::UseOdbcIniBeside(dir.string());
  data::Diagnostic diag;
  auto admin = data::PhysicalConnection::Open("bench_admin", "kop47", "kop47", diag);
  Check(admin && admin->ExecDirect("DROP SCHEMA IF EXISTS orvane_session_bench CASCADE", diag) &&
            admin->ExecDirect("CREATE SCHEMA orvane_session_bench", diag),
        "PostgreSQL: " + diag.message);
  {
    data::Connection conn;
    Check(data::Com_funDbOpen("bench_sessions", "", "", conn).ok(), "open");
    Check(data::CreateSchema(conn).ok() && data::InsertDemoData(conn, SystemClock::Instance()).ok(), "tables");
    Check(data::Com_funDbClose(conn).ok(), "close");
  }
  const std::string config = (dir / "ORVANE.ini").string();
  Instance memory(config, std::make_unique<InMemorySessionStore>(std::chrono::minutes(20)));
  Instance database(config, std::make_unique<DatabaseSessionStore>(config, std::chrono::minutes(20)));
  Instance checked(config, std::make_unique<InMemorySessionStore>(std::chrono::minutes(20)), /*open_reads=*/false);

  struct Case {
    const char* name;
    Target target;
    bool with_cookie;
    std::vector<double> memory, database;
  } cases[] = {
      {"read, no cookie (105)", {"GET", "/orvane?ReqNo=105&Group_cd=0001", "", "", "0001,"}, false, {}, {}},
      {"read with cookie (105)", {"GET", "/orvane?ReqNo=105&Group_cd=0001", "", "", "0001,"}, true, {}, {}},
      {"change with cookie (210)",
       {"POST", "/orvane", "ReqNo=210&Group_cd1=0004&Group_cd2=0005&Group_cd3=0001", "", "OK"},
       true,
       {},
       {}},
  };
  long long failures = 0;
  for (int r = 0; r < rounds; ++r) {
    for (Case& c : cases) {
      // Alternating, so a busy machine slows both alike.
      for (Instance* i : {&memory, &database}) {
        Target t = c.target;
        if (c.with_cookie) t.cookie = i->cookie;
        (i == &memory ? c.memory : c.database).push_back(Drive(i->port, t, threads, seconds, failures));
      }
    }
  }
  std::printf("session_bench: PostgreSQL, %d client threads, 4 server threads, %d rounds of %.1f s per phase\n",
              threads, rounds, seconds);
  std::printf("%-26s %12s %12s %8s\n", "request", "memory r/s", "database r/s", "ratio");
  for (Case& c : cases) {
    std::sort(c.memory.begin(), c.memory.end());
    std::sort(c.database.begin(), c.database.end());
    double m = c.memory[c.memory.size() / 2], d = c.database[c.database.size() / 2];
    std::printf("%-26s %12.0f %12.0f %8.3f\n", c.name, m, d, d / m);
  }

  struct CheckCase {
    const char* name;
    Target target;
    std::vector<double> unchecked, checked;
  } check_cases[] = {
      {"001 with cookie", {"GET", "/orvane?ReqNo=001", "", "", "C0D0E0,"}, {}, {}},
      {"101 with cookie", {"GET", "/orvane?ReqNo=101", "", "", "0000,"}, {}, {}},
  };
  for (int r = 0; r < rounds; ++r) {
    for (CheckCase& c : check_cases) {
      for (Instance* i : {&memory, &checked}) {
        Target t = c.target;
        t.cookie = i->cookie;
        (i == &memory ? c.unchecked : c.checked).push_back(Drive(i->port, t, threads, seconds, failures));
      }
    }
  }
  std::printf("\nthe administrator right read on every request (memory sessions)\n");
  std::printf("%-26s %12s %12s %8s\n", "request", "no check r/s", "check r/s", "ratio");
  for (CheckCase& c : check_cases) {
    std::sort(c.unchecked.begin(), c.unchecked.end());
    std::sort(c.checked.begin(), c.checked.end());
    double u = c.unchecked[c.unchecked.size() / 2], k = c.checked[c.checked.size() / 2];
    std::printf("%-26s %12.0f %12.0f %8.3f\n", c.name, u, k, k / u);
  }
  std::printf("failed requests: %lld\n", failures);
  admin->ExecDirect("DROP SCHEMA orvane_session_bench CASCADE", diag);
  std::filesystem::remove_all(dir);
  return failures == 0 ? 0 : 1;
}
