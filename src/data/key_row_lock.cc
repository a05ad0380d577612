#include "data/key_row_lock.h"

#include "data/db_impl.h"
#include "data/statement.h"

namespace orvane::data {

Status LockKeyRow(Connection& conn, std::string_view table, std::string_view key_column, const std::string& key) {
  if (!conn.IsOpen() || conn.dialect().kind() != Dialect::Kind::kPostgres) return LockTable(conn, table);
  Diagnostic d;
  if (!IsKnownTable(table))
    return DbFailure("Com_funExecsql", OwnDiagnostic("42000", "unknown table name \"" + std::string(table) + "\""));
  PhysicalConnection& phys = conn.impl()->phys();
  if (!phys.in_transaction()) return DbFailure("Com_funExecsql", OwnDiagnostic("25000", "No transaction is open"));
  // The key goes as a bound value; the names are the caller's own constants.
  const std::string statement =
      "SELECT 1 FROM " + std::string(table) + " WHERE " + std::string(key_column) + " = ? FOR KEY SHARE";
  OdbcHandle stmt = OdbcHandle::Allocate(SQL_HANDLE_STMT, phys.dbc(), d);
  if (stmt) {
    SQLRETURN r = ExecuteText(stmt.get(), phys.text_mode(), statement, {key});
    if (SQL_SUCCEEDED(r)) return Status::Ok();
    d = ReadDiagnostic(SQL_HANDLE_STMT, stmt.get(), phys.text_mode());
  }
  conn.impl()->StatementFailed(d);
  return DbFailure("Com_funExecsql", d, statement);
}

}  // namespace orvane::data
