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
  Sql sql;
  sql << "select SETTING_VALUE from " << Table(kSettingTable) << " where SETTING_KEY = " << Quoted(kPasswordModeKey);
  Diagnostic d;
  if (!CheckStatement(conn, sql, d)) return DbFailure(kRoutine, d, sql.Render());
  ConnectionImpl& impl = *conn.impl();
  PhysicalConnection& phys = impl.phys();
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
  Sql remove;
  remove << "delete from " << Table(kSettingTable) << " where SETTING_KEY = " << Quoted(kPasswordModeKey);
  if (Status s = Com_funExecsql(conn, remove); !s.ok()) return std::move(s).Prefixed("WritePasswordMode");
  Sql insert;
  insert << "insert into " << Table(kSettingTable) << " (SETTING_KEY, SETTING_VALUE) values ("
         << Quoted(kPasswordModeKey) << ", " << Quoted(PasswordModeName(mode)) << ")";
  return Com_funExecsql(conn, insert).Prefixed("WritePasswordMode");
}

}  // namespace orvane::data
