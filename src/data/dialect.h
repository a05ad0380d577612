// Dialect: how the few constructs whose spelling differs are written for one
// database, chosen from the driver's SQL_DBMS_NAME. It translates constructs;
// it never repairs a statement the system builds wrongly.
// Dialects are immutable singletons: thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvane::data {

class Dialect {
 public:
  enum class Kind { kSqlite, kPostgres, kSqlServer };
  explicit Dialect(Kind kind) : kind_(kind) {}
  static const Dialect& ForDbmsName(std::string_view dbms_name);  // unknown names: SQL Server spelling
  static const Dialect& Of(Kind kind);

  Kind kind() const { return kind_; }
  std::string_view Name() const;                                    // "SQLite", "PostgreSQL", "SQL Server"
  std::string Length(std::string_view column) const;                // len(x) / length(x)
  std::string Concat(const std::vector<std::string>& parts) const;  // a+b / a||b
  // A bare number in the system's text: true when it is sent as a bound text
  // value (databases that refuse to compare a number with a text column).
  bool BindsBareNumbers() const;
  // " LIMIT n OFFSET m" behind a statement, so the database skips to a page
  // and stops after it; empty when the dialect has no such clause that works
  // without an order (SQL Server), and the caller positions a static cursor.
  std::string PageClause(long offset, long limit) const;
  bool HasPageClause() const { return kind_ != Kind::kSqlServer; }
  // The statement that holds `table` against other writers until the open
  // transaction ends, readers going on; empty where the transaction's
  // begin already holds the whole database (SQLite's BEGIN IMMEDIATE).
  std::string LockTableStatement(std::string_view table) const;
  // The statements that begin, commit and roll back a writing transaction;
  // empty when the driver's autocommit switch and SQLEndTran are used.
  std::string_view BeginStatement() const;
  std::string_view CommitStatement() const;
  std::string_view RollbackStatement() const;

 private:
  Kind kind_;
};

}  // namespace orvane::data
