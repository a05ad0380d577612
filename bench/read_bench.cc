// read_bench: times the read requests in-process on a large generated
// organisation, each next to the raw time of its own statements run and
// fetched through the same data layer on a connection opened beforehand.
// The ratio is what the request costs on top of its statements.
//
//   build/release/bench/read_bench [--dir DIR] [--repeat N] [--sections N] [--users N] [--memberships N]
//
// DIR (default /tmp/orvane-bench) keeps the generated SQLite databases, so a
// second run skips generating. A smaller organisation with a tenth of the
// sizes is generated beside the large one for the tree's growth figure.
#include <sys/stat.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iostream>
#include <string>
#include <vector>

#include "data/db.h"
#include "data/schema.h"
#include "dispatch/request_fields.h"
#include "members/member_queries.h"
#include "members/user_queries.h"
#include "org/group_queries.h"
#include "org/sec_tree.h"
#include "org_generator.h"
#include "requests/web_class.h"
#include "timing.h"

namespace orvane::bench {
namespace {

struct Options {
  std::string dir = "/tmp/orvane-bench";
  int repeat = 15;
  OrgSize large;
};

bool Exists(const std::string& path) {
  struct stat st {};
  return ::stat(path.c_str(), &st) == 0;
}

void Fail(const std::string& what, const std::string& error) {
  std::cerr << "read_bench: " << what << ": " << error << "\n";
  std::exit(1);
}

void Check(const orvane::Status& status, const std::string& what) {
  if (!status.ok()) Fail(what, status.trail());
}

// One database: its data source, configuration and generated facts.
class BenchDatabase {
 public:
  BenchDatabase(const Options& o, const std::string& name, const OrgSize& size)
      : dsn_("orvane_bench_" + name), config_(o.dir + "/" + name + ".ini"), size_(size) {
    db_path_ = o.dir + "/" + name + ".db";
    std::ofstream(config_.path()) << "LOCAL_DB_DSN=" << dsn_ << "\n";
    odbc_section_ = "[" + dsn_ + "]\nDriver=SQLite3\nDatabase=" + db_path_ + "\nJournalMode=WAL\nTimeout=5000\n";
  }
  const std::string& odbc_section() const { return odbc_section_; }
  const ConfigFile& config() const { return config_; }
  const OrgFacts& facts() const { return facts_; }
  const std::string& dsn() const { return dsn_; }

  // Generates the organisation unless a previous run left one of this size.
  void Prepare() {
    std::string marker = db_path_ + ".sizes", sizes = std::to_string(size_.sections) + " " +
                                                      std::to_string(size_.users) + " " +
                                                      std::to_string(size_.memberships);
    std::string found;
    if (std::ifstream in(marker); in) std::getline(in, found);
    data::Connection conn;
    std::string error;
    if (found != sizes || !Exists(db_path_)) {
      std::remove(db_path_.c_str());
      std::cerr << "read_bench: generating " << sizes << " (sections users memberships) in " << db_path_ << "\n";
      Check(data::Com_funDbOpen(dsn_, "", "", conn), "open");
      Check(data::CreateSchema(conn), "create tables");
      auto start = std::chrono::steady_clock::now();
      if (GenerateOrganisation(conn, size_, 1, facts_, error) != 0) Fail("generate", error);
      std::cerr << "read_bench: generated in "
                << std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count() << " s\n";
      std::ofstream(marker) << sizes << "\n";
    } else {
      facts_ = FactsOf(size_);
    }
  }

  // The request as the HTTP front end runs it, answer discarded.
  std::string Request(const std::string& query) const {
    Session session;
    ApplicationStore app;
    RequestContext ctx(config_, session, app, SystemClock::Instance());
    ParseUrlEncoded(query, ctx.fields);
    RunRequest(ctx);
    return ctx.response();
  }

 private:
  std::string dsn_, db_path_, odbc_section_;
  ConfigFile config_;
  OrgSize size_;
  OrgFacts facts_;
};

// The raw side: statements on an open connection, fetched by name.
class Raw {
 public:
  explicit Raw(const std::string& dsn) { Check(data::Com_funDbOpen(dsn, "", "", conn_), "open"); }
  data::Connection& conn() { return conn_; }

  // Select and fetch at most `limit` rows (all when negative) from `position`.
  size_t Fetch(const data::Sql& sql, const std::vector<std::string>& names, long limit = -1, short position = 0) {
    data::Recordset rs;
    if (position > 0) {
      Check(data::Com_funSelectP(conn_, sql, rs), "selectp");
      Check(data::Com_funSetAbsolutePos(rs, position), "position");
    } else {
      Check(data::Com_funSelect(conn_, sql, rs), "select");
    }
    std::vector<std::string> values;
    size_t rows = 0;
    for (bool eof = false; limit < 0 || static_cast<long>(rows) < limit; ++rows) {
      Check(data::Com_funfetchData(rs, names, values, eof), "fetch");
      if (eof) break;
    }
    Check(data::Com_funRecordsetClose(rs), "close");
    return rows;
  }

 private:
  data::Connection conn_;
  std::string error_;
};

struct Figure {
  std::string what;
  double request_ms, raw_ms, limit;
};

void Print(const std::vector<Figure>& figures) {
  std::printf("| request | request ms | raw statements ms | ratio | goal |\n|---|---:|---:|---:|---:|\n");
  for (const Figure& f : figures)
    std::printf("| %s | %.3f | %.3f | %.2f | %s %.1f |\n", f.what.c_str(), f.request_ms, f.raw_ms,
                f.request_ms / f.raw_ms, f.request_ms / f.raw_ms <= f.limit ? "within" : "OVER", f.limit);
}

int Main(const Options& o) {
  ::mkdir(o.dir.c_str(), 0755);
  OrgSize small{o.large.sections / 10, o.large.users / 10, o.large.memberships / 10, o.large.big_section_members};
  BenchDatabase large_db(o, "large", o.large), small_db(o, "small", small);
  std::ofstream(o.dir + "/odbc.ini") << large_db.odbc_section() << small_db.odbc_section();
  data::UseOdbcIniBeside(o.dir);
  large_db.Prepare();
  small_db.Prepare();

  Session session;
  ApplicationStore app;
  RequestContext live(large_db.config(), session, app, SystemClock::Instance());  // the live table names
  Raw raw(large_db.dsn());
  const OrgFacts& facts = large_db.facts();
  std::vector<Figure> figures;
  auto measure = [&](std::string what, const std::string& query, const std::function<void()>& statements,
                     double limit) {
    std::string answer = large_db.Request(query);
    if (answer.rfind("ERROR:", 0) == 0) Fail(query, answer);
    std::vector<double> ms = MediansMs(o.repeat, {[&] { large_db.Request(query); }, statements});
    figures.push_back({std::move(what), ms[0], ms[1], limit});
  };

  const std::vector<std::string> triple = {"SEC_CD", "JOI_SEC", "SEC_NM"};
  measure(
      "GetAllGroupList (101)", "ReqNo=101",
      [&] {
        raw.Fetch(org::TopGroupSql(live), triple, 1);
        raw.Fetch(org::OtherGroupsSql(live), triple);
      },
      1.5);

  measure(
      "GetSpecificMember of a 500-member section (104, by name)", "ReqNo=104&S_Col=name&Group_cd=" + facts.big_section,
      [&] {
        raw.Fetch(members::SpecificMemberSql(live, facts.big_section, "name", "", "", ""),
                  {"NAME_KJ", "USER_ID", "SEC_KBN", "POST_CD", "MAIL", "ST_YMD", "ED_YMD"});
      },
      1.5);

  // S_pos is 16-bit: the last page of a kana row is the deepest a page goes.
  const std::vector<std::string> user_names = {"NAME_KJ", "USER_ID", "POST_NM", "DSP_NM", "MAIL", "UPD_KBN"};
  long in_row = std::atol(large_db.Request("ReqNo=002&S_Kbn=U&S_OPT=0").c_str());
  short last_page = static_cast<short>(std::clamp(in_row - 49, 1L, 32767L));
  measure(
      "GetAllUserList, 50 rows at the last position of kana row 0 (102, S_pos=" + std::to_string(last_page) + ")",
      "ReqNo=102&S_Col=name&S_OPT=0&B_pos=50&S_pos=" + std::to_string(last_page),
      [&] { raw.Fetch(members::AllUserListSql(live, "name", "", "0"), user_names, 50, last_page); }, 1.5);
  short deepest = static_cast<short>(std::min(o.large.users, 32767) - 49);
  measure(
      "GetAllUserList, 50 rows at S_pos=" + std::to_string(deepest) + " of all users (102)",
      "ReqNo=102&S_Col=name&B_pos=50&S_pos=" + std::to_string(deepest),
      [&] { raw.Fetch(members::AllUserListSql(live, "name", "", ""), user_names, 50, deepest); }, 1.5);

  measure(
      "GetUserProperty (106)", "ReqNo=106&User_cd=" + facts.sample_user,
      [&] {
        raw.Fetch(members::UserPropertySql(live, facts.sample_user),
                  {"USER_ID", "NAME_KJ", "NAME_KN", "PASSWORD", "MAIL", "IMAIL_FLG", "EXT_TEL", "POST_NM", "DSP_NM",
                   "MAIL_USE_FLG", "UPD_KBN", "MAIL_NM"},
                  1);
      },
      1.5);

  // The drawn tree: its growth from a tenth of the sections, and its cost
  // over the raw select of all section rows.
  auto tree = [&](Raw& on) {
    return [&on] {
      Array2D hier;
      std::string error;
      Check(org::Com_funGet_sec_info(on.conn(), "T_SECTION", hier), "Com_funGet_sec_info");
    };
  };
  auto select_all = [&](Raw& on) {
    return [&on] {
      data::Recordset rs;
      Array2D rows;
      std::string error;
      Check(data::Com_funSelect(on.conn(), org::SectionArraySql("T_SECTION"), rs), "select");
      Check(data::Com_funRecodsetToArray(rs, rows), "array");
    };
  };
  Raw small_raw(small_db.dsn());
  std::vector<double> ms = MediansMs(o.repeat, {tree(small_raw), tree(raw), select_all(small_raw), select_all(raw)});
  double tree_small = ms[0], tree_large = ms[1], select_small = ms[2], select_large = ms[3];
  figures.push_back(
      {"Com_funGet_sec_info at " + std::to_string(o.large.sections) + " sections vs the select of all rows", tree_large,
       select_large, 2.0});
  Print(figures);
  std::printf(
      "\nCom_funGet_sec_info: %.2f ms at %d sections, %.2f ms at %d: growth %.2f for 10 times the sections (goal "
      "at most 12); the select of all rows alone grows %.2f (%.2f ms to %.2f ms)\n",
      tree_large, o.large.sections, tree_small, small.sections, tree_large / tree_small, select_large / select_small,
      select_small, select_large);
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
    else if (flag == "--sections")
      o.large.sections = std::max(20, std::atoi(value.c_str()));
    else if (flag == "--users")
      o.large.users = std::max(1000, std::atoi(value.c_str()));
    else if (flag == "--memberships")
      o.large.memberships = std::atoi(value.c_str());
    else {
      std::cerr << "usage: read_bench [--dir DIR] [--repeat N] [--sections N] [--users N] [--memberships N]\n";
      return 2;
    }
  }
  o.large.memberships = std::max(o.large.memberships, o.large.users);
  return orvane::bench::Main(o);
}
