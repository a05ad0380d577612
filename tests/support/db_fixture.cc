#include "support/db_fixture.h"

#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdlib>
#include <mutex>

#include "base/text.h"
#include "data/demo_data.h"
#include "data/physical_connection.h"
#include "data/schema.h"
#include "dispatch/request_context.h"
#include "dispatch/request_fields.h"
#include "requests/web_class.h"
#include "server/server_state.h"
#include "server/session_store.h"
#include "support/status_code.h"

namespace orvane::testing {

using orvane::testing::Code;
namespace {

std::string Env(const char* name, const char* fallback) {
  const char* v = std::getenv(name);
  return v && *v ? v : fallback;
}
const std::string kPgHost = Env("ORVANE_TEST_PG_HOST", "127.0.0.1"), kPgPort = Env("ORVANE_TEST_PG_PORT", "5432"),
                  kPgDatabase = Env("ORVANE_TEST_PG_DATABASE", "orvane_test");

std::string PgSection(const std::string& name, const std::string& schema) {
  std::string s = "[" + name + "]\nDriver=PostgreSQL Unicode\nServername=" + kPgHost + "\nPort=" + kPgPort +
                  "\nDatabase=" + kPgDatabase + "\nUseServerSidePrepare=0\nProtocol=7.4-2\n";
  if (!schema.empty()) s += "ConnSettings=SET search_path TO " + schema + "\n";
  return s;
}

// Schema create and drop on the "orvane_admin" source, below the statement
// builder: their text holds a run-time name, which the builder rightly
// refuses. Returns "" or the driver's message.
std::string RunAdmin(const std::string& statement) {
  data::Diagnostic diag;
  auto conn = data::PhysicalConnection::Open("orvane_admin", "kop47", "kop47", diag);
  if (conn && conn->ExecDirect(statement, diag)) return "";
  return diag.sqlstate + " " + diag.message;
}

// Unique per case and process: parallel runs never collide.
std::string UniqueName(const char* prefix) {
  static std::atomic<int> counter{0};
  return prefix + std::to_string(getpid()) + "_" + std::to_string(counter++) + "_" + NewSessionId().substr(0, 8);
}

constexpr char kDefaultConfig[] =
    "MAINFORM_BACK_COLOR=FFFFFF\nML_MODE=2\nML_USEFLG=1\nML_ADDUSEFLG=1\nML_ISLOCAL=True\nML_SERVER=example.jp\n"
    "ML_SERVERIP=127.0.0.1\nML_EXEPROXY_PORT=5300\nJNJI_MODE=0\nDAIRI_ONESELFFLG=0\n";

}  // namespace

std::string BackendName(const ::testing::TestParamInfo<Backend>& info) {
  return info.param == Backend::kSqlite ? "SQLite" : "PostgreSQL";
}

void DbTest::WriteConfig(const std::string& first_lines) {
  config_path_ = dir_.Write("ORVANE.ini", first_lines + "LOCAL_DB_DSN=" + dsn_ + "\n" + kDefaultConfig + "ML_FOLDER=" +
                                              dir_.File("mail") + "\nML_READ_ATTACH_PATH=" + dir_.File("attach/read/") +
                                              "\nML_SEND_ATTACH_PATH=" + dir_.File("attach/send/") +
                                              "\nML_SAVE_ATTACH_PATH=" + dir_.File("attach/save/") + "\n");
}

void DbTest::ReloadApplication() {
  ConfigFile config(config_path_);
  Status loaded = LoadApplicationValues(config, app_);
  ASSERT_TRUE(loaded.ok()) << loaded.trail();
}

void DbTest::SetUp() {
  dsn_ = UniqueName("orvane_");
  WriteConfig();
  std::string schema;
  if (backend() == Backend::kSqlite) {
    dir_.Write("odbc.ini", "[" + dsn_ + "]\nDriver=SQLite3\nDatabase=" + dir_.File("orvane.db") +
                               "\nJournalMode=WAL\nTimeout=5000\n");
  } else {
    schema = UniqueName("t_");
    dir_.Write("odbc.ini", PgSection(dsn_, schema) + PgSection("orvane_admin", ""));
  }
  data::UseOdbcIniBeside(dir_.path());
  if (backend() == Backend::kPostgres) {
    // Probed once per process: when no server answers, every case skips at once.
    static std::once_flag probed;
    static std::string unreachable;
    std::call_once(probed, [] { unreachable = RunAdmin("SELECT 1"); });
    if (!unreachable.empty()) {
      GTEST_SKIP() << "PostgreSQL case skipped: no server reachable at " << kPgHost << ":" << kPgPort << "/"
                   << kPgDatabase << " as kop47 (" << unreachable
                   << "); scripts/test starts one, or set ORVANE_TEST_PG_HOST/_PORT/_DATABASE";
    }
    ASSERT_EQ(RunAdmin("CREATE SCHEMA " + schema), "") << "creating the test schema " << schema;
    pg_schema_ = schema;
  }
  data::Connection conn;
  std::string error;
  ASSERT_EQ(Code(data::Com_funDbOpen(dsn_, "", "", conn), error), 0) << error;
  ASSERT_EQ(Code(data::CreateSchema(conn), error), 0) << error;
  ASSERT_EQ(Code(data::Com_funDbClose(conn), error), 0) << error;
  ReloadApplication();
}

void DbTest::TearDown() {
  connection_ = data::Connection();
  data::ClosePooledConnections();
  EXPECT_EQ(pg_schema_.empty() ? "" : RunAdmin("DROP SCHEMA " + pg_schema_ + " CASCADE"), "") << pg_schema_;
}

void DbTest::Exec(const data::Sql& sql) {
  data::Connection conn;
  std::string error;
  ASSERT_EQ(Code(data::Com_funDbOpen(dsn_, "", "", conn), error), 0) << error;
  ASSERT_EQ(Code(data::Com_funExecsql(conn, sql), error), 0) << error;
}

void DbTest::Insert(std::string_view table, const Row& row) {
  data::Sql sql;
  sql << "insert into " << data::Table(table) << " (";
  for (size_t i = 0; i < row.size(); ++i) (i ? sql << "," : sql) << data::Identifier(row[i].first);
  sql << ") values (";
  for (size_t i = 0; i < row.size(); ++i) (i ? sql << "," : sql) << data::Quoted(row[i].second);
  Exec(sql << ")");
}

void DbTest::InsertRows(std::string_view table, const std::vector<std::string>& columns, const Cells& values) {
  for (const auto& cells : values) {
    Row row;
    for (size_t i = 0; i < columns.size(); ++i) row.emplace_back(columns[i], cells.at(i));
    Insert(table, row);
  }
}

void DbTest::InsertDemo() {
  data::Connection conn;
  ASSERT_TRUE(data::Com_funDbOpen(Dsn(), "", "", conn).ok());
  ASSERT_TRUE(data::InsertDemoData(conn, clock()).ok());
  ASSERT_TRUE(data::Com_funDbClose(conn).ok());
}

Cells DbTest::Rows(const data::Sql& sql) {
  data::Connection conn;
  data::Recordset rs;
  Array2D columns;
  std::string error;
  EXPECT_EQ(Code(data::Com_funDbOpen(dsn_, "", "", conn), error), 0) << error;
  EXPECT_EQ(Code(data::Com_funSelect(conn, sql, rs), error), 0) << error;
  EXPECT_EQ(Code(data::Com_funRecodsetToArray(rs, columns), error), 0) << error;
  Cells rows(RowCount(columns));
  for (size_t r = 0; r < rows.size(); ++r)
    for (const auto& column : columns) rows[r].push_back(column[r]);
  return rows;
}

std::string DbTest::Joined(const data::Sql& sql, std::string_view cell, std::string_view row) {
  std::string out;
  for (const auto& cells : Rows(sql)) (out += text::Join(cells, cell)) += row;
  return out;
}

std::string DbTest::AllRows(std::initializer_list<std::string_view> tables) {
  std::string out;
  for (std::string_view table : tables) {
    Cells rows = Rows(data::Sql() << "select * from " << data::Table(table));
    std::sort(rows.begin(), rows.end());
    for (const auto& cells : rows) (out += text::Join(cells, "|")) += "\n";
  }
  return out;
}

std::string DbTest::Count(std::string_view table) {
  return Rows(data::Sql() << "select count(*) as N from " << data::Table(table))[0][0];
}

void DbTest::ExpectAnswers(std::string_view prefix, const std::vector<std::pair<std::string, std::string>>& cases) {
  for (const auto& [query, answer] : cases) EXPECT_EQ(Request(std::string(prefix) + query), answer) << query;
}

RequestContext& DbTest::Context() {
  config_ = std::make_unique<ConfigFile>(config_path_);
  context_ = std::make_unique<RequestContext>(*config_, session_, app_, clock_);
  return *context_;
}

data::Connection& DbTest::Db() {
  std::string error;
  if (!connection_.IsOpen()) {
    EXPECT_EQ(Code(data::Com_funDbOpen(dsn_, "", "", connection_), error), 0) << error;
  }
  return connection_;
}

std::string DbTest::Request(std::string_view query) {
  ConfigFile config(config_path_);
  RequestContext ctx(config, session_, app_, clock_);
  ParseUrlEncoded(query, ctx.fields);
  RunRequest(ctx);
  return ctx.response();
}

}  // namespace orvane::testing
