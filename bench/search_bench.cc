// search_bench: times the search box's answer (SearchIndex, as
// GET /api/search runs it) on the benchmark organisation: the first answer,
// which reads the users and sections, and answers from the folded copy for
// queries of each kind, then a change: how long answers take while the copy
// is read again in the background, and how long until the change is found.
//
//   build/<preset>/bench/search_bench [--dir DIR] [--repeat N] [--pg HOST:PORT:DATABASE] [--sqlite 0]
//
// SQLite: DIR (default /tmp/orvane-search-bench) keeps the generated
// database, so a second run skips generating. With --pg the schema
// orvane_bench_pg of that PostgreSQL database (login kop47), which
// read_bench fills with the same organisation, generated here when empty.
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <iostream>
#include <string>
#include <thread>
#include <vector>

#include "base/text.h"
#include "bench_checks.h"
#include "data/db.h"
#include "data/schema.h"
#include "org_generator.h"
#include "server/search_index.h"
#include "timing.h"

namespace orvane::bench {
namespace {

struct Options {
  std::string dir = "/tmp/orvane-search-bench";
  int repeat = 15;
  std::string pg;
  bool sqlite = true;  // --sqlite 0: PostgreSQL only
};

// Generates the organisation unless the database holds one of its size.
void Prepare(const std::string& dsn, const OrgSize& size) {
  data::Connection conn;
  Check(data::Com_funDbOpen(dsn, "", "", conn), "open");
  Check(data::CreateSchema(conn), "create tables");
  long users = 0;
  Check(data::SelectCount(conn, data::Sql() << "select count(*) as CNT from " << data::Table("T_USER"), users),
        "count");
  if (users == size.users) return;
  for (const data::TableDef& t : data::SchemaTables())
    Check(data::Com_funExecsql(conn, data::Sql() << "delete from " << data::Table(t.name)), "empty " + t.name);
  std::cerr << "search_bench: generating in " << dsn << "\n";
  OrgFacts facts;
  std::string error;
  if (GenerateOrganisation(conn, size, 1, facts, error) != 0) {
    std::cerr << "search_bench: generate: " << error << "\n";
    std::exit(1);
  }
}

double MsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

// A section renamed as the server renames one, then searches for the new
// name as a page asks while one types (every 20 ms) until it is found:
// the slowest answer meanwhile and the delay until the change shows.
void AfterAChange(SearchIndex& index, const ConfigFile& config) {
  const std::string dsn = config.Get("LOCAL_DB_DSN");
  SearchResult found;
  Check(index.Search(config, "0001", 1, found), "0001");
  if (found.groups.empty()) return;
  const std::string code = found.groups[0].code, old_name = found.groups[0].name;
  auto rename = [&dsn, &code](const std::string& name) {
    data::Connection conn;
    Check(data::Com_funDbOpen(dsn, "", "", conn), "open");
    Check(data::Com_funExecsql(conn, data::Sql() << "update " << data::Table("T_SECTION") << " set SEC_NM = "
                                                 << data::Quoted(name) << " where SEC_CD = " << data::Quoted(code)),
          "rename");
    Check(data::Com_funDbClose(conn), "close");
  };
  const std::string marker = "zzrenamed" + std::to_string(::getpid());
  rename(marker);
  const auto changed = std::chrono::steady_clock::now();
  index.Changed(config);
  std::vector<double> ms;
  do {
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
    const auto start = std::chrono::steady_clock::now();
    Check(index.Search(config, marker, 20, found), marker);
    ms.push_back(MsSince(start));
  } while (found.groups.empty() && MsSince(changed) < 60000);
  const double found_after = MsSince(changed);
  std::sort(ms.begin(), ms.end());
  std::printf(
      "\nafter a change: %zu answers while the copy was read again: median %.2f ms, slowest %.2f ms; "
      "the change found after %.0f ms%s\n",
      ms.size(), ms[ms.size() / 2], ms.back(), found_after, found.groups.empty() ? " (NOT FOUND)" : "");
  rename(old_name);
  index.Changed(config);
}

void Measure(const Options& o, const char* backend, const std::string& config_path) {
  ConfigFile config(config_path);
  SearchIndex index;
  SearchResult found;
  auto start = std::chrono::steady_clock::now();
  Check(index.Search(config, "a", 20, found), "first search");
  const double first = std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
  std::printf("\n%s: first answer (reads and folds every user and section) %.1f ms\n\n", backend, first);
  std::printf("| query | users | groups | ms (median of %d) |\n|---|---:|---:|---:|\n", o.repeat);
  const struct {
    const char* label;
    std::string q;
  } kQueries[] = {
      {"one hiragana (な)", "な"},
      {"a reading, hiragana (やまだ)", "やまだ"},
      {"a user id, full-width (ｕ０５００００)", "ｕ０５００００"},
      {"mail domain (example.jp, every user)", "example.jp"},
      {"nothing matches (zzzz)", "zzzz"},
      {"a section code (0001)", "0001"},
  };
  for (const auto& q : kQueries) {
    Check(index.Search(config, q.q, 20, found), q.q);
    std::vector<double> ms = MediansMs(o.repeat, {[&] { index.Search(config, q.q, 20, found).IgnoreError(); }});
    std::printf("| %s | %zu | %zu | %.2f |\n", q.label, found.users.size(), found.groups.size(), ms[0]);
  }
  AfterAChange(index, config);
}

int Main(const Options& o) {
  ::mkdir(o.dir.c_str(), 0755);
  std::string odbc =
      "[orvane_search_sqlite]\nDriver=SQLite3\nDatabase=" + o.dir + "/large.db\nJournalMode=WAL\nTimeout=5000\n";
  if (!o.pg.empty()) {
    std::vector<std::string> parts = text::Split(o.pg, ":");
    parts.resize(3);
    odbc += "[orvane_search_pg]\nDriver=PostgreSQL Unicode\nServername=" + parts[0] + "\nPort=" + parts[1] +
            "\nDatabase=" + parts[2] +
            "\nUseServerSidePrepare=0\nProtocol=7.4-2\nConnSettings=CREATE SCHEMA IF NOT EXISTS orvane_bench_pg;"
            "SET search_path TO orvane_bench_pg\n";
  }
  std::ofstream(o.dir + "/odbc.ini") << odbc;
  std::ofstream(o.dir + "/sqlite.ini") << "LOCAL_DB_DSN=orvane_search_sqlite\n";
  std::ofstream(o.dir + "/pg.ini") << "LOCAL_DB_DSN=orvane_search_pg\n";
  data::UseOdbcIniBeside(o.dir);
  const OrgSize size;
  if (o.sqlite) {
    Prepare("orvane_search_sqlite", size);
    Measure(o, "SQLite", o.dir + "/sqlite.ini");
  }
  if (!o.pg.empty()) {
    Prepare("orvane_search_pg", size);
    Measure(o, "PostgreSQL", o.dir + "/pg.ini");
  }
  return 0;
}

}  // namespace
}  // namespace orvane::bench

int main(int argc, char** argv) {
  orvane::bench::Options o;
  for (int i = 1; i + 1 < argc; i += 2) {
    std::string flag = argv[i], value = argv[i + 1];
    if (flag == "--dir")
      o.dir = value;
    else if (flag == "--repeat")
      o.repeat = std::max(1, std::atoi(value.c_str()));
    else if (flag == "--pg")
      o.pg = value;
  }
  return orvane::bench::Main(o);
}
