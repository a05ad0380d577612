// The connection routines: open, close, execute, transactions.
#include "data/connection_pool.h"
#include "data/db_impl.h"
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

int Com_funDbOpen(const std::string& dsn, const std::string& user, const std::string& password, Connection& conn,
                  std::string& error) {
  conn.impl_.reset();  // a fresh connection object, as the system makes one per call
  bool default_login = user.empty() && password.empty();
  Diagnostic d;
  auto phys = ConnectionPool::Instance().Acquire(dsn, default_login ? kDefaultLogin : user,
                                                 default_login ? kDefaultLogin : password, d);
  if (!phys) {
    error = ErrorText("Com_funDbOpen", d, dsn);
    return 1;
  }
  conn.impl_ = std::make_unique<ConnectionImpl>(std::move(phys));
  return 0;
}

int Com_funDbClose(Connection& conn, std::string& error) {
  if (!conn.IsOpen()) {
    error = ErrorText("Com_funDbClose", NotOpen());
    return 1;
  }
  conn.impl_.reset();
  return 0;
}

int Com_funExecsql(Connection& conn, const Sql& sql, std::string& error) {
  constexpr char kRoutine[] = "Com_funExecsql";
  Diagnostic d;
  if (!CheckStatement(conn, sql, d)) {
    error = ErrorText(kRoutine, d, sql.Render());
    return 1;
  }
  ConnectionImpl& impl = *conn.impl();
  PhysicalConnection& phys = impl.phys();
  OdbcHandle stmt = OdbcHandle::Allocate(SQL_HANDLE_STMT, phys.dbc(), d);
  if (stmt) {
    SQLRETURN r =
        ExecuteText(stmt.get(), phys.text_mode(), sql.Statement(phys.dialect()), sql.Parameters(phys.dialect()));
    if (SQL_SUCCEEDED(r)) return 0;
    d = ReadDiagnostic(SQL_HANDLE_STMT, stmt.get(), phys.text_mode());
  }
  impl.StatementFailed(d);
  error = ErrorText(kRoutine, d, sql.Render());
  return 1;
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

int Com_funBeginTrans(Connection& conn, std::string& error) {
  Diagnostic d;
  if (!conn.IsOpen()) {
    d = NotOpen();
  } else if (conn.impl()->phys().in_transaction()) {
    d = OwnDiagnostic("25000", "A transaction is already open");
  } else {
    conn.impl()->unit_failed = false;  // a new unit; the failed one was rolled back already
    if (conn.impl()->phys().Begin(d)) return 0;
  }
  error = ErrorText("Com_funBeginTrans", d);
  return 1;
}

int Com_funCommitTrans(Connection& conn, std::string& error) {
  Diagnostic d;
  if (!conn.IsOpen()) {
    d = NotOpen();
  } else if (conn.impl()->unit_failed) {
    d = UnitFailed();
  } else if (!conn.impl()->phys().in_transaction()) {
    d = OwnDiagnostic("25000", "No transaction is open");
  } else if (conn.impl()->phys().Commit(d)) {
    return 0;
  }
  error = ErrorText("Com_funCommitTrans", d);
  return 1;
}

int Com_funRollbackTrans(Connection& conn, std::string& error) {
  Diagnostic d;
  if (!conn.IsOpen()) {
    error = ErrorText("Com_funRollbackTrans", NotOpen());
    return 1;
  }
  ConnectionImpl& impl = *conn.impl();
  impl.unit_failed = false;
  // Rolling back with nothing open is harmless and asked for on error paths.
  if (!impl.phys().in_transaction() || impl.phys().Rollback(d)) return 0;
  error = ErrorText("Com_funRollbackTrans", d);
  return 1;
}

void ClosePooledConnections() { ConnectionPool::Instance().CloseIdle(); }

}  // namespace orvane::data
