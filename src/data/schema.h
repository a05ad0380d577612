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

struct TableDef {
  std::string name;
  std::vector<std::string> columns;
  std::vector<std::string> key;                   // primary key columns; may be empty
  std::vector<std::vector<std::string>> indexes;  // columns of each secondary index
};

// Every table init-db creates, the _WORK twins included.
const std::vector<TableDef>& SchemaTables();

// The statements that create the tables and indexes on `dialect`, in order,
// each safe to run again.
std::vector<std::string> SchemaStatements(const Dialect& dialect);

// Runs SchemaStatements on an open connection in one transaction. Returns 0,
// or 1 with `error` naming the failed statement.
int CreateSchema(Connection& conn, std::string& error);

}  // namespace orvane::data
