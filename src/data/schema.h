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

// An index over expressions as well as columns (SQLite and PostgreSQL; SQL
// Server would need computed columns and goes without). A statement the
// index serves spells each expression exactly as here.
struct ExpressionIndex {
  std::string name;  // behind "IX_<table>_"
  std::vector<std::string> keys;
};

// The kana row (0 to 9) of NAME_KN, null below ア: the same half-open ranges
// as the kana-row clauses, tested from the top row down. An index on it
// followed by the sort key serves a kana row's page in order.
inline constexpr SqlText kKanaRowOfName =
    "CASE WHEN NAME_KN>='ワ' THEN 9 WHEN NAME_KN>='ラ' THEN 8 WHEN NAME_KN>='ヤ' THEN 7"
    " WHEN NAME_KN>='マ' THEN 6 WHEN NAME_KN>='ハ' THEN 5 WHEN NAME_KN>='ナ' THEN 4"
    " WHEN NAME_KN>='タ' THEN 3 WHEN NAME_KN>='サ' THEN 2 WHEN NAME_KN>='カ' THEN 1"
    " WHEN NAME_KN>='ア' THEN 0 END";

struct TableDef {
  std::string name;
  std::vector<std::string> columns;
  std::vector<std::string> key;                   // primary key columns; may be empty
  std::vector<std::vector<std::string>> indexes;  // columns of each secondary index
  // Columns that may hold more than 255 characters (SQL Server: nvarchar(max)).
  std::vector<std::string> long_text = {};
  std::vector<ExpressionIndex> expression_indexes = {};
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
