#include "data/history_store.h"

#include <sqlext.h>

#include <atomic>

#include "data/db_impl.h"
#include "data/history_schema.h"
#include "data/statement.h"

namespace orvane::data {
namespace {

// Straight to the driver, past the routines' failure hooks; the first
// column of the first row into `first` when asked for.
Status Bookkeeping(Connection& conn, std::string_view routine, const Sql& sql, std::string* first = nullptr) {
  Diagnostic d;
  if (!CheckStatement(conn, sql, d)) return DbFailure(routine, d, sql.Render());
  ConnectionImpl& impl = *conn.impl();
  PhysicalConnection& phys = impl.phys();
  std::shared_ptr<StatementSlot> slot = impl.NewStatement(d);
  if (!slot) return DbFailure(routine, d, sql.Render());
  SQLHSTMT stmt = slot->stmt.get();
  SQLRETURN r = ExecuteText(stmt, phys.text_mode(), sql.Statement(phys.dialect()), sql.Parameters(phys.dialect()));
  if (SQL_SUCCEEDED(r) && first) {
    r = SQLFetch(stmt);
    if (r == SQL_NO_DATA) {
      d = OwnDiagnostic("02000", "no row");
      return DbFailure(routine, d, sql.Render());
    }
    if (SQL_SUCCEEDED(r) && !ReadColumn(stmt, phys.text_mode(), 1, *first)) r = SQL_ERROR;
  }
  if (!SQL_SUCCEEDED(r)) {
    d = ReadDiagnostic(SQL_HANDLE_STMT, stmt, phys.text_mode());
    impl.StatementFailed(d);
    return DbFailure(routine, d, sql.Render());
  }
  SQLFreeStmt(stmt, SQL_CLOSE);
  return Status::Ok();
}

// `id` null: not asked for (SQLite then skips last_insert_rowid()).
Status Insert(Connection& conn, std::string_view routine, const HistoryEntry& entry, bool open, long* id) {
  const Dialect::Kind kind = conn.dialect().kind();
  Sql sql;
  sql << "insert into " << Table(kHistoryTable)
      << " (ENTRY_TIME, USER_ID, ADDRESS, CODE, FIELDS, ANSWER, UNDOES, IS_OPEN)";
  if (kind == Dialect::Kind::kSqlServer) sql << " output inserted.ID";
  sql << " values (" << Quoted(entry.time) << ", " << Quoted(entry.user) << ", " << Quoted(entry.address) << ", "
      << Quoted(entry.code) << ", " << Quoted(entry.fields) << ", " << Quoted(entry.answer) << ", ";
  if (entry.undoes > 0) {
    std::string undoes = std::to_string(entry.undoes);
    sql << "cast(" << Quoted(undoes) << " as bigint)";
  } else {
    sql << "NULL";
  }
  // Only SQLite's triggers look for the open entry; PostgreSQL's read the
  // transaction's setting, which cannot outlive it.
  sql << ((open && kind == Dialect::Kind::kSqlite) ? SqlText(", 1)") : SqlText(", 0)"));
  if (kind == Dialect::Kind::kPostgres) {
    sql << (open ? SqlText(" returning ID, set_config('orvane.history_entry', cast(ID as text), true)")
                 : SqlText(" returning ID"));
  }
  std::string value;
  if (kind == Dialect::Kind::kSqlite) {
    if (Status s = Bookkeeping(conn, routine, sql); !s.ok()) return s;
    if (!id) return Status::Ok();
    Sql last;
    last << "select last_insert_rowid()";
    if (Status s = Bookkeeping(conn, routine, last, &value); !s.ok()) return s;
  } else if (Status s = Bookkeeping(conn, routine, sql, &value); !s.ok()) {
    return s;
  }
  if (id) *id = std::stol(value);
  return Status::Ok();
}

std::atomic<bool> history_kept{true};

}  // namespace

void SetHistoryKept(bool kept) { history_kept = kept; }
bool HistoryKept() { return history_kept; }

Status OpenHistoryEntry(Connection& conn, const HistoryEntry& entry, long& id) {
  if (!history_kept) return Status::Ok();
  return Insert(conn, "OpenHistoryEntry", entry, true, &id);
}

Status OpenHistoryEntry(Connection& conn, const HistoryEntry& entry) {
  if (!history_kept) return Status::Ok();
  return Insert(conn, "OpenHistoryEntry", entry, true, nullptr);
}

Status CloseHistoryEntry(Connection& conn, long id) {
  if (!history_kept || conn.dialect().kind() != Dialect::Kind::kSqlite) return Status::Ok();
  Sql sql;
  std::string key = std::to_string(id);
  sql << "update " << Table(kHistoryTable) << " set IS_OPEN = 0 where ";
  if (id > 0) {
    sql << "ID = cast(" << Quoted(key) << " as integer)";
  } else {
    // Writers are serialised: the transaction's own entry is the newest.
    sql << "ID = (select max(ID) from " << Table(kHistoryTable) << ") and IS_OPEN = 1";
  }
  return Bookkeeping(conn, "CloseHistoryEntry", sql);
}

Status RecordHistoryEntry(Connection& conn, const HistoryEntry& entry, long* id) {
  constexpr char kRoutine[] = "RecordHistoryEntry";
  if (!history_kept) return Status::Ok();
  if (!conn.IsOpen()) return DbFailure(kRoutine, NotOpen());
  ConnectionImpl& impl = *conn.impl();
  if (impl.phys().in_transaction()) {
    Diagnostic d;
    if (!impl.phys().Rollback(d)) return DbFailure(kRoutine, d);
  }
  impl.unit_failed = false;  // what failed is rolled back: the entry is a unit of its own
  return Insert(conn, kRoutine, entry, false, id);
}

}  // namespace orvane::data
