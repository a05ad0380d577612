// db_bench: the cost of the system's one-connection-per-operation habit.
//
// For SQLite and PostgreSQL (when reachable), in the same run:
//   open:   Com_funDbOpen + one keyed select + fetch + close + Com_funDbClose
//           (the shape of every query request), through the pool;
//   bare:   the same select, fetch and close on an already open connection;
//   nopool: the first, with the pool keeping nothing (a real connect each time).
// Goal: open / bare under 2.
// Then the administrator right that every request over HTTP reads
// (members::ReadAdminRight: open, one select joining the user's T_USER and
// MENU_USER rows by key, close), kept planned on the connection, against
// the same select sent as it is.
//
// Usage: db_bench [iterations]. PostgreSQL from ORVANE_TEST_PG_HOST/_PORT/
// _DATABASE (default 127.0.0.1, 5432, orvane_test; login kop47/kop47).
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>

#include "data/connection_pool.h"
#include "data/db.h"
#include "data/schema.h"
#include "members/admin_right.h"

namespace {

using namespace orvane::data;  // NOLINT: a small driver

constexpr int kUsers = 1000;

std::string Env(const char* name, const char* fallback) {
  const char* v = std::getenv(name);
  return v && *v ? v : fallback;
}

bool Check(const orvane::Status& status) {
  if (!status.ok()) std::fprintf(stderr, "db_bench: %s\n", status.trail().c_str());
  return status.ok();
}

// Rows u0000 ... u0999 in T_USER, replacing what was there.
bool Fill(const std::string& dsn) {
  Connection conn;
  std::string error;
  if (!Check(Com_funDbOpen(dsn, "", "", conn))) return false;
  if (!Check(CreateSchema(conn))) return false;
  if (!Check(Com_funBeginTrans(conn))) return false;
  if (!Check(Com_funExecsql(conn, Sql() << "delete from " << Table("T_USER")))) return false;
  if (!Check(Com_funExecsql(conn, Sql() << "delete from " << Table("MENU_USER")))) return false;
  for (int i = 0; i < kUsers; ++i) {
    char id[16];
    std::snprintf(id, sizeof id, "u%04d", i);
    if (!Check(Com_funExecsql(conn, Sql()
                                        << "insert into " << Table("T_USER")
                                        << " (USER_ID ,NAME_KJ ,NAME_KN ,MAIL ,DSP_NM ,UPD_KBN) values (" << Quoted(id)
                                        << " ," << Quoted("山田 太郎") << " ," << Quoted("ヤマダ タロウ") << " ,"
                                        << Quoted(id) << " ," << Quoted(id) << " ," << Quoted("3") << ")")))
      return false;
    if (!Check(Com_funExecsql(conn, Sql() << "insert into " << Table("MENU_USER") << " (USER_ID ,MENU50) values ("
                                          << Quoted(id) << " ," << Quoted("50") << ")")))
      return false;
  }
  return Check(Com_funCommitTrans(conn));
}

bool KeyedSelect(Connection& conn, int i) {
  char id[16];
  std::snprintf(id, sizeof id, "u%04d", i % kUsers);
  Recordset rs;
  std::vector<std::string> values;
  bool eof = false;
  std::string error;
  return Check(Com_funSelect(conn,
                             Sql() << "select USER_ID ,NAME_KJ ,NAME_KN ,MAIL from " << Table("T_USER")
                                   << " where USER_ID = " << Quoted(id),
                             rs)) &&
         Check(Com_funfetchData(rs, {"USER_ID", "NAME_KJ", "NAME_KN", "MAIL"}, values, eof)) && !eof &&
         Check(Com_funRecordsetClose(rs));
}

// Microseconds per call of `step` over `n` calls.
double PerCall(int n, const std::function<bool(int)>& step) {
  auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < n; ++i)
    if (!step(i)) return -1;
  return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count() / n;
}

std::string UserId(int i) {
  char id[16];
  std::snprintf(id, sizeof id, "u%04d", i % kUsers);
  return id;
}

// The right as every request reads it, against the same select unprepared.
void MeasureRightCheck(const char* backend, const std::string& dsn, const std::filesystem::path& dir, int n) {
  std::ofstream(dir / (dsn + ".ini")) << "LOCAL_DB_DSN=" << dsn << "\n";
  orvane::ConfigFile config((dir / (dsn + ".ini")).string());
  auto prepared = [&](int i) {
    bool holds = false;
    return Check(orvane::members::ReadAdminRight(config, UserId(i), "MENU50", holds)) && holds;
  };
  auto as_is = [&](int i) {
    Connection conn;
    std::string value;
    return Check(Com_funDbOpen(dsn, "", "", conn)) &&
           Check(SelectFirstValue(conn, orvane::members::AdminRightSql(UserId(i), "MENU50"), "MENU50", value)) &&
           value == "50" && Check(Com_funDbClose(conn));
  };
  PerCall(n / 10, prepared);
  constexpr int kRounds = 5;
  double kept = 1e18, sent = 1e18;
  for (int r = 0; r < kRounds; ++r) {
    kept = std::min(kept, PerCall(n / kRounds, prepared));
    sent = std::min(sent, PerCall(n / kRounds, as_is));
  }
  std::printf("%-10s  right check: kept planned %8.1f us   sent as it is %8.1f us\n", backend, kept, sent);
}

void Measure(const char* backend, const std::string& dsn, int n) {
  if (!Fill(dsn)) {
    std::printf("%-10s  not measured (see the error above)\n", backend);
    return;
  }
  auto open_select_close = [&](int i) {
    Connection conn;
    std::string error;
    return Check(Com_funDbOpen(dsn, "", "", conn)) && KeyedSelect(conn, i) && Check(Com_funDbClose(conn));
  };
  Connection open;
  std::string error;
  if (!Check(Com_funDbOpen(dsn, "", "", open))) return;
  PerCall(n / 10, open_select_close);  // warm-up
  // Alternating rounds, best of each: a busy machine slows both alike.
  constexpr int kRounds = 5;
  double bare = 1e18, pooled = 1e18;
  for (int r = 0; r < kRounds; ++r) {
    bare = std::min(bare, PerCall(n / kRounds, [&](int i) { return KeyedSelect(open, i); }));
    pooled = std::min(pooled, PerCall(n / kRounds, open_select_close));
  }
  ConnectionPool::Instance().set_max_idle(0);
  double unpooled = PerCall(n / 10, open_select_close);
  ConnectionPool::Instance().set_max_idle(ConnectionPool::kDefaultMaxIdle);
  std::printf("%-10s  bare %8.1f us   open+select+close %8.1f us   ratio %.2f   without pool %8.1f us\n", backend, bare,
              pooled, pooled / bare, unpooled);
}

}  // namespace

int main(int argc, char** argv) {
  int n = argc > 1 ? std::atoi(argv[1]) : 20000;
  std::filesystem::path dir = std::filesystem::temp_directory_path() / ("orvane-bench-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  std::ofstream(dir / "odbc.ini") << "[bench_sqlite]\nDriver=SQLite3\nDatabase=" << (dir / "bench.db").string()
                                  << "\nJournalMode=WAL\nTimeout=5000\n\n"
                                  << "[bench_pg]\nDriver=PostgreSQL Unicode\nServername="
                                  << Env("ORVANE_TEST_PG_HOST", "127.0.0.1")
                                  << "\nPort=" << Env("ORVANE_TEST_PG_PORT", "5432")
                                  << "\nDatabase=" << Env("ORVANE_TEST_PG_DATABASE", "orvane_test")
                                  << "\nUseServerSidePrepare=0\nProtocol=7.4-2\n";
  UseOdbcIniBeside(dir.string());
  std::printf("db_bench: %d keyed selects per case (%d rows)\n", n, kUsers);
  Measure("SQLite", "bench_sqlite", n);
  Measure("PostgreSQL", "bench_pg", n);
  MeasureRightCheck("SQLite", "bench_sqlite", dir, n);
  MeasureRightCheck("PostgreSQL", "bench_pg", dir, n);
  ClosePooledConnections();
  std::filesystem::remove_all(dir);
  return 0;
}
