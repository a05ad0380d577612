// DbTest: a fixture that runs each case on SQLite and on PostgreSQL against
// a real database with the system's tables:
//
//   using GroupQueries = orvane::testing::DbTest;
//   TEST_P(GroupQueries, ListsTheTopSection) {
//     Insert("T_SECTION", {{"SEC_CD", "0000"}, {"JOI_SEC", "9999"}, {"SEC_NM", "本社"}});
//     EXPECT_EQ(Request("ReqNo=101"), "0000,9999,本社");
//   }
//   ORVANE_DB_TEST_SUITE(GroupQueries);
//
// Per case: a temporary folder with ORVANE.ini (every configuration key,
// LOCAL_DB_DSN=Dsn()) and odbc.ini, which the data layer is pointed at; a
// data source name of its own (unixODBC caches lookups for 20 s); a fresh
// SQLite file or PostgreSQL schema (search_path set by psqlODBC's
// ConnSettings, dropped in TearDown) with the tables `orvane init-db` makes.
// PostgreSQL: ORVANE_TEST_PG_HOST, _PORT, _DATABASE (default 127.0.0.1,
// 5432, orvane_test; login kop47/kop47), as scripts/test starts it; when no
// server answers the PostgreSQL cases skip, saying so.
// The clock is fixed: 2024-04-01 10:20:30 unless a case sets another.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "data/db.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "dispatch/request_context.h"
#include "dispatch/session.h"
#include "support/temp_dir.h"

namespace orvane::testing {

enum class Backend { kSqlite, kPostgres };

using Row = std::vector<std::pair<std::string, std::string>>;  // column, value
using Cells = std::vector<std::vector<std::string>>;           // [row][column]

class DbTest : public ::testing::TestWithParam<Backend> {
 protected:
  void SetUp() override;
  void TearDown() override;

  Backend backend() const { return GetParam(); }
  TempDir& dir() { return dir_; }
  const std::string& ConfigPath() const { return config_path_; }
  const std::string& Dsn() const { return dsn_; }

  // Rewrites ORVANE.ini with `first_lines` in front of the defaults; the
  // first line naming a key wins, so this overrides any default.
  void WriteConfig(const std::string& first_lines = "");
  // Reloads the application values (menuinfo.csv beside ORVANE.ini).
  void ReloadApplication();

  // Through the data layer, on a fresh connection; a failure fails the test.
  void Exec(const data::Sql& sql);
  // insert into table (columns...) values ('values'...)
  void Insert(std::string_view table, const Row& row);
  // One insert per row of `values`, each value under its column.
  void InsertRows(std::string_view table, const std::vector<std::string>& columns, const Cells& values);
  // The demo organisation of `init-db --demo` (administrator admin/admin).
  void InsertDemo();
  // The result's rows, each with its columns in statement order.
  Cells Rows(const data::Sql& sql);
  // The same as one text: cells joined by `cell`, each row ended by `row`.
  std::string Joined(const data::Sql& sql, std::string_view cell = "|", std::string_view row = "\n");
  // Every row of each table, sorted, cells joined by "|", one a line: what
  // a refused change must leave as it was.
  std::string AllRows(std::initializer_list<std::string_view> tables);
  // How many rows `table` holds, as the database writes the number.
  std::string Count(std::string_view table);

  // Runs one request in-process through WebClass_Start, as the HTTP front
  // end does, and returns the answer text.
  std::string Request(std::string_view query);
  // Each query (behind `prefix`) answers exactly its text.
  void ExpectAnswers(std::string_view prefix, const std::vector<std::pair<std::string, std::string>>& cases);
  // A request's context on ORVANE.ini and a connection of its own, for
  // calling an operation's routines directly.
  RequestContext& Context();
  data::Connection& Db();
  // Session values: writing requests need PUB_USR_ID set here.
  Session& session() { return session_; }
  FixedClock& clock() { return clock_; }
  ApplicationStore& app() { return app_; }

 private:
  TempDir dir_;
  std::string config_path_;
  std::string dsn_;
  std::string pg_schema_;  // PostgreSQL only
  FixedClock clock_{LocalTime{2024, 4, 1, 10, 20, 30}};
  Session session_;
  ApplicationStore app_;
  std::unique_ptr<ConfigFile> config_;
  std::unique_ptr<RequestContext> context_;
  data::Connection connection_;
};

std::string BackendName(const ::testing::TestParamInfo<Backend>& info);

}  // namespace orvane::testing

// Instantiates a DbTest suite for both backends; test names end in
// /SQLite and /PostgreSQL.
#define ORVANE_DB_TEST_SUITE(suite)                                                                                   \
  INSTANTIATE_TEST_SUITE_P(                                                                                           \
      Backends, suite, ::testing::Values(::orvane::testing::Backend::kSqlite, ::orvane::testing::Backend::kPostgres), \
      ::orvane::testing::BackendName)
