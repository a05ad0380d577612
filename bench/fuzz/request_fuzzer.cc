// A whole request in-process, as `orvane request` takes it ("ReqNo=201&
// Group_cd=0000&..."), run through the request table as the logged-in
// administrator against a real SQLite database holding the demo
// organisation, in a temporary folder.
//
// Every answer must be what its code can answer: an unknown code
// "ERROR:NOREQUESTCODE"; a change "OK" or "ERROR:..."; a query data or
// "ERROR:..."; status 500 only for a field that is not a 16-bit integer.
// Nothing may throw, and the database may never be left busy. After every
// change, answered "OK" or not, the invariants of bench/load/invariants.h
// must hold on the live and the work tables; when they do not, the changes
// since the last reset are printed, in order, before the abort.
//
// Requests that hit a known finding (known_findings.h) are not sent.
//
// The database is put back to the demo organisation every kResetEvery
// inputs, so that a run does not drift into a state no input reproduces.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "data/db.h"
#include "data/demo_data.h"
#include "data/schema.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "dispatch/request_context.h"
#include "dispatch/request_fields.h"
#include "dispatch/session.h"
#include "known_findings.h"
#include "load/invariants.h"
#include "requests/request_table.h"
#include "requests/web_class.h"

namespace {

namespace fs = std::filesystem;
using orvane::Status;

constexpr int kResetEvery = 200;
constexpr char kDsn[] = "orvane_fuzz";

struct Installation {
  std::string dir, config, db, pristine;
  orvane::ApplicationStore app;
  orvane::FixedClock clock{orvane::LocalTime{2024, 4, 1, 10, 20, 30}};
  std::set<std::string> demo_users;
  std::vector<std::string> changes;  // since the last reset
  int runs = 0;
};

void Die(const std::string& what) {
  std::fprintf(stderr, "request_fuzzer: %s\n", what.c_str());
  std::abort();
}

void Write(const std::string& path, const std::string& text) { std::ofstream(path, std::ios::trunc) << text; }

// A folder of its own in memory when there is one: commits are many.
std::string MakeFolder() {
  std::string base = fs::exists("/dev/shm") ? "/dev/shm" : fs::temp_directory_path().string();
  static std::string folder = base + "/orvane-fuzz-XXXXXX";
  if (!::mkdtemp(folder.data())) Die("cannot create a temporary folder");
  // libFuzzer ends a bounded run with exit(); a failing run keeps the folder.
  std::atexit([] {
    std::error_code ignored;
    fs::remove_all(folder, ignored);
  });
  return folder;
}

void RemoveDb(const std::string& db) {
  for (const char* tail : {"", "-journal", "-wal", "-shm"}) fs::remove(db + tail);
}

Installation& Setup() {
  static Installation* in = [] {
    auto* i = new Installation;
    i->dir = MakeFolder();
    i->db = i->dir + "/orvane.db";
    i->pristine = i->dir + "/demo.db";
    i->config = i->dir + "/ORVANE.ini";
    // ML_MODE 1: no mail server is told anything; the requests' own
    // database work is what is fuzzed here.
    Write(i->config, std::string("LOCAL_DB_DSN=") + kDsn +
                         "\nMAINFORM_BACK_COLOR=FFFFFF\nML_MODE=1\nML_USEFLG=1\nML_ADDUSEFLG=1\nML_ISLOCAL=True\n"
                         "ML_SERVER=example.jp\nML_SERVERIP=127.0.0.1\nML_EXEPROXY_PORT=9\nML_EXEPROXY_TIMEOUT=1\n"
                         "JNJI_MODE=0\nDAIRI_ONESELFFLG=0\nML_FOLDER=" +
                         i->dir + "/mail\nML_READ_ATTACH_PATH=" + i->dir + "/attach/read\nML_SEND_ATTACH_PATH=" +
                         i->dir + "/attach/send\nML_SAVE_ATTACH_PATH=" + i->dir + "/attach/save\n");
    Write(i->dir + "/odbc.ini",
          std::string("[") + kDsn + "]\nDriver=SQLite3\nDatabase=" + i->db + "\nTimeout=1000\nSyncPragma=OFF\n");
    Write(i->dir + "/menuinfo.csv", "01,スケジュール,1\n21,メール,1\n23,ワークフロー,1\n50,管理者メニュー,1\n");
    fs::create_directories(i->dir + "/mail/Lists/general");
    orvane::data::UseOdbcIniBeside(i->dir);
    orvane::data::Connection conn;
    Status s = orvane::data::Com_funDbOpen(kDsn, "", "", conn);
    if (s.ok()) s = orvane::data::CreateSchema(conn);
    if (s.ok()) s = orvane::data::InsertDemoData(conn, i->clock);
    if (s.ok()) s = orvane::data::Com_funDbClose(conn);
    if (!s.ok()) Die("cannot create the demo database: " + s.trail());
    orvane::data::ClosePooledConnections();
    fs::copy_file(i->db, i->pristine);
    orvane::ConfigFile config(i->config);
    if (orvane::Status s = orvane::LoadApplicationValues(config, i->app); !s.ok()) Die("menu catalogue: " + s.trail());
    i->demo_users = {"admin", "yamada", "sato", "ito", "watanabe", "tanaka"};
    return i;
  }();
  return *in;
}

void Reset(Installation& in) {
  orvane::data::ClosePooledConnections();
  RemoveDb(in.db);
  fs::copy_file(in.pristine, in.db);
  in.changes.clear();
}

void CheckTables(Installation& in) {
  for (const char* suffix : {"", "_WORK"}) {
    orvane::bench::InvariantReport report;
    if (Status s = orvane::bench::CheckInvariants(kDsn, suffix, in.demo_users, report); !s.ok())
      Die(std::string("the checker cannot read the tables: ") + s.trail());
    if (report.Holds()) continue;
    std::string sequence;
    for (const std::string& c : in.changes) sequence += "  " + c + "\n";
    Die(std::string("invariants broken on the ") + (*suffix ? "work" : "live") + " tables:\n" + report.Text() +
        "\nchanges since the demo organisation, in order:\n" + sequence);
  }
}

bool StartsWith(std::string_view s, std::string_view prefix) { return s.substr(0, prefix.size()) == prefix; }

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Setup();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Installation& in = Setup();
  if (in.runs++ % kResetEvery == 0) Reset(in);
  std::string query(reinterpret_cast<const char*>(data), size);

  orvane::ConfigFile config(in.config);
  orvane::Session session;
  session.Set("PUB_USR_ID", "admin");
  orvane::RequestContext ctx(config, session, in.app, in.clock);
  orvane::ParseUrlEncoded(query, ctx.fields);
  const orvane::RequestRoute* route = orvane::FindRoute(ctx.Field("ReqNo"));
  if (route && route->changes_data) {
    static const bool send_all = std::getenv("ORVANE_FUZZ_ALL") && std::string(std::getenv("ORVANE_FUZZ_ALL")) == "1";
    if (!send_all && orvane::bench::KnownFinding(kDsn, ctx.fields) != 0) return 0;
    in.changes.push_back(query);
  }
  orvane::RunRequest(ctx);
  const std::string& answer = ctx.response();

  auto wrong = [&](const char* why) {
    Die(std::string(why) + "\nrequest: " + query + "\nanswer: " + answer.substr(0, 400) +
        "\nstatus: " + std::to_string(ctx.http_status));
  };
  if (ctx.http_status == 500 && !StartsWith(answer, "ERROR:TYPEMISMATCH")) wrong("status 500 without a type mismatch");
  if (ctx.http_status != 200 && ctx.http_status != 500) wrong("a status other than 200 or 500");
  if (!route && answer != "ERROR:NOREQUESTCODE") wrong("an unknown code not answered ERROR:NOREQUESTCODE");
  if (route && route->changes_data && answer != "OK" && !StartsWith(answer, "ERROR:"))
    wrong("a change answered neither OK nor ERROR:");
  if (answer.find("ERROR:INTERNAL") != std::string::npos) wrong("an operation threw");
  const orvane::Cause& cause = ctx.failure_cause();
  if (cause.message.find("locked") != std::string::npos || cause.message.find("busy") != std::string::npos)
    wrong("the database was left busy");
  if (route && route->changes_data) CheckTables(in);
  return 0;
}
