// history_bench: what keeping the change history costs, in process through
// RunRequest as a logged-in user, on SQLite and PostgreSQL (when reachable).
//
//   1. Write throughput of 202 (rename a group), 207 (add a membership) and
//      212 (move a leaf group) with the history and without it (the
//      history's triggers dropped and the frame's entry switched off), in
//      the same run, taking turns. Goal: with at least 85% of without.
//   2. 212 moving a group with 5,000 descendants, with the history (every
//      rewritten row's image kept). Goal: under 1 s.
//   3. The History screen's first page (GET /api/history's read, 50
//      entries with their images and names) with 1,000,000 entries, and the
//      same filtered by a group. Goal: under 50 ms.
//
//   build/release/bench/history_bench [--ops N] [--repeat N] [--entries N]
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "base/clock.h"
#include "bench_checks.h"
#include "data/db.h"
#include "data/history_schema.h"
#include "data/history_store.h"
#include "data/schema.h"
#include "history/history_read.h"
#include "requests/web_class.h"
#include "timing.h"

namespace orvane::bench {
namespace {

using data::Quoted;
using data::Table;

constexpr int kUsers = 2000;
constexpr int kBig = 5000;

std::string Env(const char* name, const char* fallback) {
  const char* v = std::getenv(name);
  return v && *v ? v : fallback;
}

void Exec(data::Connection& conn, const data::Sql& sql, const char* what) {
  Check(data::Com_funExecsql(conn, sql), what);
}

// 00000 at the top; 00001 with 5,000 descendants (an 8-ary tree); 00002 and
// 00003, two groups the moves go between; 00004 ... 00103, leaves to rename,
// move and add members to. Users u0000 ... u1999.
void Generate(data::Connection& conn) {
  std::vector<Section> out = {{Code(0), "9999", "001", Code(0), "本社"}};
  for (int i = 1; i <= 3; ++i)
    out.push_back({Code(i), Code(0), "00" + std::to_string(i), Code(0) + "/" + Code(i), "/ 部" + Code(i)});
  for (int i = 4; i < 104; ++i)
    out.push_back({Code(i), Code(2), "001", Code(0) + "/" + Code(2) + "/" + Code(i), "/ 部00002 / 課" + Code(i)});
  std::vector<size_t> nodes = {1};
  for (int k = 1; k <= kBig; ++k) {
    const Section parent = out[nodes[(k - 1) / 8]];
    std::string code = Code(1000 + k);
    nodes.push_back(out.size());
    out.push_back({code, parent.code, "00" + std::to_string((k - 1) % 8 + 1), parent.tree + "/" + code,
                   parent.tree_nm + " / 課" + code});
  }
  Check(data::Com_funBeginTrans(conn), "begin");
  InsertSections(conn, out);
  for (int i = 0; i < kUsers; i += 200) {
    data::Sql sql;
    sql << "insert into " << Table("T_USER") << " (USER_ID,NAME_KJ,NAME_KN,MAIL,DSP_NM,UPD_KBN) values ";
    for (int j = i; j < i + 200; ++j) {
      char id[16];
      std::snprintf(id, sizeof id, "u%04d", j);
      if (j > i) sql << ",";
      sql << "(" << Quoted(id) << "," << Quoted("山田 太郎") << "," << Quoted("ヤマダ タロウ") << "," << Quoted(id)
          << "," << Quoted(id) << ",'3')";
    }
    Exec(conn, sql, "users");
  }
  Check(data::Com_funCommitTrans(conn), "commit");
}

// The history's triggers dropped and the frame's entry off (without), or
// both back (with).
void History(data::Connection& conn, bool kept) {
  data::SetHistoryKept(kept);
  Check(kept ? data::CreateSchema(conn) : data::DropHistoryTriggers(conn), kept ? "history on" : "history off");
}

struct Backend {
  const char* name;
  std::string dsn;
};

void Run(const Backend& b, const ConfigFile& config, int ops, int repeat, long entries) {
  data::Connection conn;
  if (!data::Com_funDbOpen(b.dsn, "", "", conn).ok()) {
    std::printf("%s: not reachable, skipped\n", b.name);
    return;
  }
  Check(data::CreateSchema(conn), "create tables");
  for (const char* table : {"ORVANE_HISTORY_ROW", "ORVANE_HISTORY", "T_SECMEMBER", "T_SECTION", "T_USER"})
    Exec(conn, data::Sql() << "delete from " << Table(table), "empty");
  Generate(conn);

  Session session;
  session.Set("PUB_USR_ID", "bench");
  ApplicationStore app;
  auto request = [&](const std::string& query) { RunOk(config, session, app, query); };
  // Each pass does `ops` of one request and leaves the organisation as it
  // found it (202 names back, 207's memberships removed outside the timing,
  // 212 moves there and back).
  int rename_flip = 0, move_flip = 0, member = 0;
  auto rename = [&] {
    for (int i = 0; i < ops; ++i)
      request("ReqNo=202&Group_cd=" + Code(4 + i % 100) + "&Group_nm=名" + std::to_string((rename_flip + i / 100) % 2) +
              "&Disp_NM=x&M_LIST=");
    ++rename_flip;
  };
  auto add = [&] {
    for (int i = 0; i < ops; ++i, ++member) {
      char id[16];
      std::snprintf(id, sizeof id, "u%04d", member % kUsers);
      request("ReqNo=207&Group_cd=" + Code(4 + (member / kUsers) % 100) + "&User_cd=" + id);
    }
  };
  auto move = [&] {
    // Under 00003 and back to 00002 in turns (ops a multiple of 100).
    for (int i = 0; i < ops; ++i)
      request("ReqNo=212&Group_cd1=" + Code(4 + i % 100) + "&Group_cd2=" + Code(3 - (i / 100 + move_flip) % 2));
    ++move_flip;
  };
  std::vector<double> with, without;
  for (const std::function<void()>& run : std::vector<std::function<void()>>{rename, add, move}) {
    std::vector<double> w, wo;
    for (int r = 0; r <= repeat; ++r) {  // the first round warms up and is not counted
      for (bool kept : {r % 2 == 0, r % 2 != 0}) {
        History(conn, kept);
        auto start = std::chrono::steady_clock::now();
        run();
        double ms = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
        if (r > 0) (kept ? w : wo).push_back(ops * 1000.0 / ms);
        Exec(conn, data::Sql() << "delete from " << Table("T_SECMEMBER"), "memberships");
      }
    }
    std::sort(w.begin(), w.end());
    std::sort(wo.begin(), wo.end());
    with.push_back(w[w.size() / 2]);
    without.push_back(wo[wo.size() / 2]);
  }
  const char* names[] = {"202 rename", "207 add member", "212 move leaf"};
  for (int i = 0; i < 3; ++i)
    std::printf("%-10s %-15s without %7.0f/s   with %7.0f/s   with/without %.2f\n", b.name, names[i], without[i],
                with[i], with[i] / without[i]);

  // The big move, there and back, with the history and without it.
  int big = 0;
  auto big_move = [&](bool kept) {
    return [&, kept] {
      History(conn, kept);
      auto start = std::chrono::steady_clock::now();
      request(std::string("ReqNo=212&Group_cd1=00001&Group_cd2=") + (big++ % 2 ? "00000" : "00003"));
      return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
    };
  };
  std::vector<double> with_ms, without_ms;
  for (int r = 0; r <= repeat; ++r) {
    double wo = big_move(false)(), w = big_move(true)();
    if (r > 0) {
      without_ms.push_back(wo);
      with_ms.push_back(w);
    }
  }
  std::sort(with_ms.begin(), with_ms.end());
  std::sort(without_ms.begin(), without_ms.end());
  std::printf("%-10s 212 moving 5,001 sections: without %.0f ms, with history %.0f ms\n", b.name,
              without_ms[without_ms.size() / 2], with_ms[with_ms.size() / 2]);
  History(conn, true);

  // A million entries, one image each, written by the database itself.
  Exec(conn, data::Sql() << "delete from " << Table("ORVANE_HISTORY_ROW"), "empty");
  Exec(conn, data::Sql() << "delete from " << Table("ORVANE_HISTORY"), "empty");
  std::string n = std::to_string(entries);
  data::Sql fill_entries, fill_rows;
  if (conn.dialect().kind() == data::Dialect::Kind::kPostgres) {
    fill_entries << "insert into ORVANE_HISTORY (ID, ENTRY_TIME, USER_ID, ADDRESS, CODE, FIELDS, ANSWER, IS_OPEN)"
                    " select g, '2026-11-25 10:00:00', 'u' || lpad(cast(g % 2000 as text), 4, '0'), '127.0.0.1',"
                    " '202', '{\"ReqNo\":\"202\"}', 'OK', 0 from generate_series(1, cast("
                 << Quoted(n) << " as integer)) g";
    fill_rows << "insert into ORVANE_HISTORY_ROW (ENTRY_ID, ROW_TABLE, ROW_ACTION, ROW_KEY, ROW_LABEL, ROW_SEC_CD,"
                 " BEFORE_IMAGE, AFTER_IMAGE) select g, 'T_SECTION', 'update', lpad(cast(4 + g % 100 as text), 5,"
                 " '0'), '名', lpad(cast(4 + g % 100 as text), 5, '0'), '{\"SEC_NM\":\"名0\"}',"
                 " '{\"SEC_NM\":\"名1\"}' from generate_series(1, cast("
              << Quoted(n) << " as integer)) g";
  } else {
    fill_entries << "insert into ORVANE_HISTORY (ID, ENTRY_TIME, USER_ID, ADDRESS, CODE, FIELDS, ANSWER, IS_OPEN)"
                    " with recursive g(x) as (select 1 union all select x + 1 from g where x < cast("
                 << Quoted(n)
                 << " as integer)) select x, '2026-11-25 10:00:00', 'u' || substr('000' || (x % 2000),"
                    " -4), '127.0.0.1', '202', '{\"ReqNo\":\"202\"}', 'OK', 0 from g";
    fill_rows << "insert into ORVANE_HISTORY_ROW (ENTRY_ID, ROW_TABLE, ROW_ACTION, ROW_KEY, ROW_LABEL, ROW_SEC_CD,"
                 " BEFORE_IMAGE, AFTER_IMAGE) with recursive g(x) as (select 1 union all select x + 1 from g"
                 " where x < cast("
              << Quoted(n)
              << " as integer)) select x, 'T_SECTION', 'update', substr('0000' || (4 + x % 100), -5),"
                 " '名', substr('0000' || (4 + x % 100), -5), '{\"SEC_NM\":\"名0\"}', '{\"SEC_NM\":\"名1\"}'"
                 " from g";
  }
  auto start = std::chrono::steady_clock::now();
  Check(data::Com_funBeginTrans(conn), "begin");
  Exec(conn, fill_entries, "entries");
  Exec(conn, fill_rows, "images");
  Check(data::Com_funCommitTrans(conn), "commit");
  if (conn.dialect().kind() == data::Dialect::Kind::kPostgres) {
    Exec(conn, data::Sql() << "analyze ORVANE_HISTORY", "analyze");
    Exec(conn, data::Sql() << "analyze ORVANE_HISTORY_ROW", "analyze");
    // The identity goes on after the rows written with their ids.
    Exec(conn, data::Sql() << "select setval(pg_get_serial_sequence('orvane_history', 'id'), 10000000)", "sequence");
  } else {
    Exec(conn, data::Sql() << "analyze", "analyze");
  }
  double fill = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  Check(data::Com_funDbClose(conn), "close");
  auto page = [&](history::Filter filter) {
    return [&b, filter] {
      data::Connection c;
      Check(data::Com_funDbOpen(b.dsn, "", "", c), "open");
      std::vector<history::Entry> found;
      long next = 0;
      Check(history::ReadHistory(c, filter, found, next), "read");
      if (found.empty()) {
        std::cerr << "history_bench: a page of " << found.size() << "\n";
        std::exit(1);
      }
      Check(data::Com_funDbClose(c), "close");
    };
  };
  history::Filter by_group;
  by_group.group = "00050";
  history::Filter by_user;
  by_user.user = "u0042";
  std::vector<double> pages = MediansMs(repeat, {page({}), page(by_group), page(by_user)});
  std::printf("%-10s %ld entries (written in %.0f s): first page %.1f ms, by group %.1f ms, by user %.1f ms\n", b.name,
              entries, fill, pages[0], pages[1], pages[2]);
}

}  // namespace
}  // namespace orvane::bench

int main(int argc, char** argv) {
  int ops = 300, repeat = 5;
  long entries = 1000000;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string flag = argv[i];
    if (flag == "--ops") ops = std::atoi(argv[i + 1]);
    if (flag == "--repeat") repeat = std::atoi(argv[i + 1]);
    if (flag == "--entries") entries = std::atol(argv[i + 1]);
  }
  namespace fs = std::filesystem;
  fs::path dir = fs::temp_directory_path() / ("orvane-history-bench-" + std::to_string(getpid()));
  fs::create_directories(dir);
  using orvane::bench::Env;
  const std::string schema = "orvane_history_bench";  // as created below
  std::ofstream(dir / "odbc.ini") << "[hb_sqlite]\nDriver=SQLite3\nDatabase=" << (dir / "bench.db").string()
                                  << "\nJournalMode=WAL\nTimeout=5000\n\n"
                                  << "[hb_pg]\nDriver=PostgreSQL Unicode\nServername="
                                  << Env("ORVANE_TEST_PG_HOST", "127.0.0.1")
                                  << "\nPort=" << Env("ORVANE_TEST_PG_PORT", "5432")
                                  << "\nDatabase=" << Env("ORVANE_TEST_PG_DATABASE", "orvane_test")
                                  << "\nUseServerSidePrepare=0\nProtocol=7.4-2\nConnSettings=SET search_path TO "
                                  << schema << "\n\n[hb_pg_admin]\nDriver=PostgreSQL Unicode\nServername="
                                  << Env("ORVANE_TEST_PG_HOST", "127.0.0.1")
                                  << "\nPort=" << Env("ORVANE_TEST_PG_PORT", "5432")
                                  << "\nDatabase=" << Env("ORVANE_TEST_PG_DATABASE", "orvane_test") << "\n";
  std::ofstream(dir / "bench.ini") << "LOCAL_DB_DSN=hb_sqlite\nJNJI_MODE=0\nML_FOLDER=" << dir.string() << "\n";
  std::ofstream(dir / "bench_pg.ini") << "LOCAL_DB_DSN=hb_pg\nJNJI_MODE=0\nML_FOLDER=" << dir.string() << "\n";
  orvane::data::UseOdbcIniBeside(dir.string());
  {
    // The benchmark's own schema, so other runs on the database are left alone.
    orvane::data::Connection admin;
    if (orvane::data::Com_funDbOpen("hb_pg_admin", "", "", admin).ok()) {
      orvane::data::Com_funExecsql(admin, orvane::data::Sql() << "create schema if not exists orvane_history_bench")
          .IgnoreError();                                 // a failure shows when the schema's tables are made
      orvane::data::Com_funDbClose(admin).IgnoreError();  // nothing to commit
    }
  }
  std::printf("history_bench: %d requests a pass, median of %d; %ld entries\n", ops, repeat, entries);
  orvane::bench::Run({"SQLite", "hb_sqlite"}, orvane::ConfigFile((dir / "bench.ini").string()), ops, repeat, entries);
  orvane::bench::Run({"PostgreSQL", "hb_pg"}, orvane::ConfigFile((dir / "bench_pg.ini").string()), ops, repeat,
                     entries);
  orvane::data::ClosePooledConnections();
  fs::remove_all(dir);
  return 0;
}
