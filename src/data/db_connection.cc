// The connection routines: open, close, execute, transactions.
#include <atomic>

#include "data/connection_pool.h"
#include "data/db_impl.h"
#include "data/failure_seam.h"
#include "data/statement.h"

namespace orvane::data {

constexpr char kDefaultLogin[] = "kop47";

std::string ErrorText(std::string_view routine, const Diagnostic& d) {
  // Built by appends: GCC 12 warns falsely on literal + temporary.
  std::string text = "[";
  text += routine;
  text += "]エラー番号 ";
  text += std::to_string(d.native);
  text += " [";
  text += d.sqlstate;
  text += "] ";
  text += d.message;
  return text;
}

std::string ErrorText(std::string_view routine, const Diagnostic& d, std::string_view sql) {
  return ErrorText(routine, d) + "<BR><BR>SQL : " + std::string(sql);
}

Status DbFailure(std::string_view routine, const Diagnostic& d) { return Status::DbFailure(ErrorText(routine, d), d); }

Status DbFailure(std::string_view routine, const Diagnostic& d, std::string_view sql) {
  return Status::DbFailure(ErrorText(routine, d, sql), d);
}

Diagnostic NotOpen() { return OwnDiagnostic("08003", "Connection not open"); }
Diagnostic UnitFailed() {
  return OwnDiagnostic("25000", "The transaction was rolled back after a failed statement; roll back first");
}

ConnectionImpl::~ConnectionImpl() {
  for (auto& weak : statements_) {
    if (auto slot = weak.lock()) {
      slot->stmt.Reset();
      slot->conn = nullptr;
    }
  }
  ConnectionPool::Instance().Release(std::move(phys_));
}

std::shared_ptr<StatementSlot> ConnectionImpl::NewStatement(Diagnostic& diag) {
  std::erase_if(statements_, [](const std::weak_ptr<StatementSlot>& w) { return w.expired(); });
  auto slot = std::make_shared<StatementSlot>();
  slot->stmt = OdbcHandle::Allocate(SQL_HANDLE_STMT, phys_->dbc(), diag);
  if (!slot->stmt) return nullptr;
  slot->conn = phys_.get();
  statements_.push_back(slot);
  return slot;
}

void ConnectionImpl::StatementFailed(const Diagnostic& diag) {
  phys_->NoteFailure(diag);
  if (phys_->in_transaction()) {
    Diagnostic ignored;
    phys_->Rollback(ignored);
    unit_failed = true;
  }
}

Connection::Connection() = default;
Connection::~Connection() = default;
Connection::Connection(Connection&&) noexcept = default;
Connection& Connection::operator=(Connection&&) noexcept = default;

bool Connection::IsOpen() const { return impl_ != nullptr; }

const Dialect& Connection::dialect() const {
  return impl_ ? impl_->phys().dialect() : Dialect::Of(Dialect::Kind::kSqlServer);
}

Status Com_funDbOpen(const std::string& dsn, const std::string& user, const std::string& password, Connection& conn) {
  conn.impl_.reset();  // a fresh connection object, as the system makes one per call
  bool default_login = user.empty() && password.empty();
  Diagnostic d;
  std::unique_ptr<PhysicalConnection> phys;
  if (!ORVANE_SEAM_FAILS(kOpen, d)) {
    phys = ConnectionPool::Instance().Acquire(dsn, default_login ? kDefaultLogin : user,
                                              default_login ? kDefaultLogin : password, d);
  }
  if (!phys) {
    return DbFailure("Com_funDbOpen", d, dsn);
  }
  conn.impl_ = std::make_unique<ConnectionImpl>(std::move(phys));
  return Status::Ok();
}

Status Com_funDbClose(Connection& conn) {
  if (!conn.IsOpen()) {
    return DbFailure("Com_funDbClose", NotOpen());
  }
  Diagnostic d;
  bool failed = ORVANE_SEAM_FAILS(kClose, d);
  if (failed) conn.impl_->phys().NoteFailure(d);
  conn.impl_.reset();  // released whether or not the close reports a failure
  return failed ? DbFailure("Com_funDbClose", d) : Status::Ok();
}

Status Com_funExecsql(Connection& conn, const Sql& sql) {
  constexpr char kRoutine[] = "Com_funExecsql";
  Diagnostic d;
  if (!CheckStatement(conn, sql, d)) {
    return DbFailure(kRoutine, d, sql.Render());
  }
  ConnectionImpl& impl = *conn.impl();
  PhysicalConnection& phys = impl.phys();
  OdbcHandle stmt = OdbcHandle::Allocate(SQL_HANDLE_STMT, phys.dbc(), d);
  if (stmt && !ORVANE_SEAM_FAILS(kStatement, d)) {
    SQLRETURN r =
        ExecuteText(stmt.get(), phys.text_mode(), sql.Statement(phys.dialect()), sql.Parameters(phys.dialect()));
    if (SQL_SUCCEEDED(r)) return Status::Ok();
    d = ReadDiagnostic(SQL_HANDLE_STMT, stmt.get(), phys.text_mode());
  }
  impl.StatementFailed(d);
  return DbFailure(kRoutine, d, sql.Render());
}

Status LockTable(Connection& conn, std::string_view table) {
  Diagnostic d;
  if (!conn.IsOpen()) return DbFailure("Com_funExecsql", NotOpen());
  if (!IsKnownTable(table))
    return DbFailure("Com_funExecsql", OwnDiagnostic("42000", "unknown table name \"" + std::string(table) + "\""));
  PhysicalConnection& phys = conn.impl()->phys();
  if (!phys.in_transaction()) return DbFailure("Com_funExecsql", OwnDiagnostic("25000", "No transaction is open"));
  std::string statement = phys.dialect().LockTableStatement(table);
  if (statement.empty() || phys.ExecDirect(statement, d)) return Status::Ok();
  conn.impl()->StatementFailed(d);
  return DbFailure("Com_funExecsql", d, statement);
}

bool CheckStatement(Connection& conn, const Sql& sql, Diagnostic& d) {
  if (!conn.IsOpen()) {
    d = NotOpen();
  } else if (!sql.Valid()) {
    d = OwnDiagnostic("42000", "Statement refused before sending: " + sql.Problem());
  } else if (conn.impl()->unit_failed) {
    d = UnitFailed();
  } else {
    return true;
  }
  return false;
}

Status Com_funBeginTrans(Connection& conn) {
  Diagnostic d;
  if (!conn.IsOpen()) {
    d = NotOpen();
  } else if (conn.impl()->phys().in_transaction()) {
    d = OwnDiagnostic("25000", "A transaction is already open");
  } else {
    conn.impl()->unit_failed = false;  // a new unit; the failed one was rolled back already
    if (conn.impl()->phys().Begin(d)) return Status::Ok();
  }
  return DbFailure("Com_funBeginTrans", d);
}

Status Com_funCommitTrans(Connection& conn) {
  Diagnostic d;
  if (!conn.IsOpen()) {
    d = NotOpen();
  } else if (conn.impl()->unit_failed) {
    d = UnitFailed();
  } else if (!conn.impl()->phys().in_transaction()) {
    d = OwnDiagnostic("25000", "No transaction is open");
  } else if (conn.impl()->phys().Commit(d)) {
    return Status::Ok();
  }
  return DbFailure("Com_funCommitTrans", d);
}

Status Com_funRollbackTrans(Connection& conn) {
  Diagnostic d;
  if (!conn.IsOpen()) {
    return DbFailure("Com_funRollbackTrans", NotOpen());
  }
  ConnectionImpl& impl = *conn.impl();
  impl.unit_failed = false;
  if (ORVANE_SEAM_FAILS(kRollback, d)) {
    impl.phys().NoteFailure(d);
  } else if (!impl.phys().in_transaction() || impl.phys().Rollback(d)) {
    // Rolling back with nothing open is harmless and asked for on error paths.
    return Status::Ok();
  }
  return DbFailure("Com_funRollbackTrans", d);
}

void ClosePooledConnections() { ConnectionPool::Instance().CloseIdle(); }

namespace {
std::atomic<long long> statement_timeout_seconds{0};
}  // namespace

void SetStatementTimeout(std::chrono::seconds limit) {
  statement_timeout_seconds = limit.count();
  ConnectionPool::Instance().CloseIdle();  // opened without it
}

std::chrono::seconds StatementTimeout() { return std::chrono::seconds(statement_timeout_seconds.load()); }

}  // namespace orvane::data
