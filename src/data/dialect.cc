#include "data/dialect.h"

#include "base/text.h"

namespace orvane::data {

const Dialect& Dialect::Of(Kind kind) {
  static const Dialect sqlite(Kind::kSqlite), postgres(Kind::kPostgres), sql_server(Kind::kSqlServer);
  switch (kind) {
    case Kind::kSqlite:
      return sqlite;
    case Kind::kPostgres:
      return postgres;
    case Kind::kSqlServer:
      break;
  }
  return sql_server;
}

const Dialect& Dialect::ForDbmsName(std::string_view dbms_name) {
  if (text::EqualsIgnoreCase(dbms_name, "SQLite")) return Of(Kind::kSqlite);
  if (text::EqualsIgnoreCase(dbms_name, "PostgreSQL")) return Of(Kind::kPostgres);
  return Of(Kind::kSqlServer);
}

std::string_view Dialect::Name() const {
  switch (kind_) {
    case Kind::kSqlite:
      return "SQLite";
    case Kind::kPostgres:
      return "PostgreSQL";
    case Kind::kSqlServer:
      break;
  }
  return "SQL Server";
}

std::string Dialect::Length(std::string_view column) const {
  return std::string(kind_ == Kind::kSqlServer ? "len(" : "length(") + std::string(column) + ")";
}

std::string Dialect::Concat(const std::vector<std::string>& parts) const {
  return text::Join(parts, kind_ == Kind::kSqlServer ? "+" : "||");
}

// SQLite gives the number the column's text affinity; SQL Server converts
// it. PostgreSQL refuses text = integer, so the number goes as a text value.
bool Dialect::BindsBareNumbers() const { return kind_ == Kind::kPostgres; }

std::string Dialect::PageClause(long offset, long limit) const {
  if (!HasPageClause()) return "";
  return " LIMIT " + std::to_string(limit) + " OFFSET " + std::to_string(offset);
}

std::string Dialect::LockTableStatement(std::string_view table) const {
  switch (kind_) {
    case Kind::kSqlite:
      return "";
    case Kind::kPostgres:
      return "LOCK TABLE " + std::string(table) + " IN SHARE ROW EXCLUSIVE MODE";
    case Kind::kSqlServer:
      break;
  }
  return "SELECT COUNT(*) FROM " + std::string(table) + " WITH (TABLOCKX, HOLDLOCK)";
}

// SQLite takes its write lock at BEGIN IMMEDIATE, so two read-then-write
// operations queue up instead of one failing with "database is locked".
std::string_view Dialect::BeginStatement() const { return kind_ == Kind::kSqlite ? "BEGIN IMMEDIATE" : ""; }
std::string_view Dialect::CommitStatement() const { return kind_ == Kind::kSqlite ? "COMMIT" : ""; }
std::string_view Dialect::RollbackStatement() const { return kind_ == Kind::kSqlite ? "ROLLBACK" : ""; }

}  // namespace orvane::data
