#include "data/password_mode.h"

#include <sqlext.h>

#include "data/db_impl.h"
#include "data/statement.h"

namespace orvane::data {

std::string_view PasswordModeName(PasswordMode mode) { return mode == PasswordMode::kPlain ? "plain" : "argon2id"; }

Status ReadPasswordMode(Connection& conn, PasswordMode& mode, bool* recorded) {
  constexpr char kRoutine[] = "ReadPasswordMode";
  mode = PasswordMode::kPlain;
  if (recorded) *recorded = false;
  Diagnostic d;
  if (!conn.IsOpen()) return DbFailure(kRoutine, NotOpen());
  ConnectionImpl& impl = *conn.impl();
  PhysicalConnection& phys = impl.phys();
  Sql sql;
  sql << "select SETTING_VALUE from " << Table(kSettingTable) << " where SETTING_KEY = " << Quoted(kPasswordModeKey);
  // A transaction that stores a password holds the row until it ends, so
  // the conversion (which changes the row first) waits for it, and it for
  // the conversion: no value in clear lands behind a conversion. SQLite's
  // writers are serialised by BEGIN IMMEDIATE already.
  if (phys.in_transaction() && phys.dialect().kind() == Dialect::Kind::kPostgres) sql << " for share";
  if (!CheckStatement(conn, sql, d)) return DbFailure(kRoutine, d, sql.Render());
  // Straight to the driver, past the routines' failure hooks: the tests
  // that make the Nth statement of an operation fail count the system's
  // statements, and this read is not one of them.
  std::shared_ptr<StatementSlot> slot = impl.NewStatement(d);
  if (!slot) return DbFailure(kRoutine, d, sql.Render());
  SQLHSTMT stmt = slot->stmt.get();
  std::string value;
  bool found = false;
  SQLRETURN r = ExecuteText(stmt, phys.text_mode(), sql.Statement(phys.dialect()), sql.Parameters(phys.dialect()));
  if (SQL_SUCCEEDED(r)) {
    r = SQLFetch(stmt);
    if (r == SQL_NO_DATA) {
      r = SQL_SUCCESS;
    } else if (SQL_SUCCEEDED(r)) {
      found = true;
      if (!ReadColumn(stmt, phys.text_mode(), 1, value)) r = SQL_ERROR;
    }
  }
  if (!SQL_SUCCEEDED(r)) {
    d = ReadDiagnostic(SQL_HANDLE_STMT, stmt, phys.text_mode());
    impl.StatementFailed(d);
    return DbFailure(kRoutine, d, sql.Render());
  }
  SQLFreeStmt(stmt, SQL_CLOSE);
  if (!found) return Status::Ok();
  if (recorded) *recorded = true;
  if (value == PasswordModeName(PasswordMode::kArgon2id)) {
    mode = PasswordMode::kArgon2id;
  } else if (value != PasswordModeName(PasswordMode::kPlain)) {
    // Neither: refuse rather than guess which way passwords are kept.
    return DbFailure(kRoutine, OwnDiagnostic("22023", "unknown password mode \"" + value + "\""), sql.Render());
  }
  return Status::Ok();
}

Status WritePasswordMode(Connection& conn, PasswordMode mode) {
  constexpr char kRoutine[] = "WritePasswordMode";
  // An update where the row exists: a reader waiting on the row then reads
  // the new value (a deleted row would read as no mode at all).
  PasswordMode current;
  bool recorded = false;
  if (Status s = ReadPasswordMode(conn, current, &recorded); !s.ok() && s.cause().sqlstate != "22023")
    return std::move(s).Prefixed(kRoutine);
  Sql sql;
  if (recorded) {
    sql << "update " << Table(kSettingTable) << " set SETTING_VALUE = " << Quoted(PasswordModeName(mode))
        << " where SETTING_KEY = " << Quoted(kPasswordModeKey);
  } else {
    sql << "insert into " << Table(kSettingTable) << " (SETTING_KEY, SETTING_VALUE) values ("
        << Quoted(kPasswordModeKey) << ", " << Quoted(PasswordModeName(mode)) << ")";
  }
  return Com_funExecsql(conn, sql).Prefixed(kRoutine);
}

}  // namespace orvane::data
