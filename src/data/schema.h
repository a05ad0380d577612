// The tables of the system and of the groupware tables it writes or clears,
// as data, and the statements that create them. Every column is text; keys
// and indexes serve the lookups the operations make. Creating is idempotent:
// existing tables and indexes are left as they are.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "data/db.h"
#include "data/dialect.h"

namespace orvane::data {

// The menu numbers of the groupware in the column order of the menu-rights
// table (MENU01 ... MENU79): the request's menu-code list.
inline constexpr std::string_view kMenuCodeList =
    "01,02,03,04,05,06,07,21,22,23,24,25,26,27,50,51,70,71,72,73,74,75,76,77,78,79";

struct TableDef {
  std::string name;
  std::vector<std::string> columns;
  std::vector<std::string> key;                   // primary key columns; may be empty
  std::vector<std::vector<std::string>> indexes;  // columns of each secondary index
  // Columns that may hold more than 255 characters (SQL Server: nvarchar(max)).
  std::vector<std::string> long_text = {};
};

// The one row of ORVANE_TREE_VERSION: every change of the live section
// tree raises its VERSION (a whole number as text) in its transaction.
inline constexpr std::string_view kTreeVersionTable = "ORVANE_TREE_VERSION";

// Every table init-db creates, the _WORK twins included.
const std::vector<TableDef>& SchemaTables();

// The statements that create the tables and indexes on `dialect`, in order,
// each safe to run again; the last one adds the tree version's row when it
// is missing.
std::vector<std::string> SchemaStatements(const Dialect& dialect);

// Runs SchemaStatements on an open connection in one transaction. A failure
// names the failed statement.
Status CreateSchema(Connection& conn);

}  // namespace orvane::data
