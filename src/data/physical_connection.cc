#include "data/physical_connection.h"

#include <sqlext.h>
#include <sqlucode.h>

#include "data/db.h"
#include "data/failure_seam.h"
#include "data/odbc_env.h"
#include "data/statement.h"
#include "data/utf16.h"

namespace orvane::data {
namespace {

constexpr SQLULEN kLoginTimeoutSeconds = 15;

std::string DbmsName(SQLHDBC dbc) {
  SQLWCHAR buf[128] = {};
  SQLSMALLINT length = 0;
  if (!SQL_SUCCEEDED(SQLGetInfoW(dbc, SQL_DBMS_NAME, buf, sizeof buf, &length))) return "";
  return ToUtf8(std::u16string_view(reinterpret_cast<const char16_t*>(buf), std::min<size_t>(length / 2, 127)));
}

}  // namespace

std::unique_ptr<PhysicalConnection> PhysicalConnection::Open(const std::string& dsn, const std::string& user,
                                                             const std::string& password, Diagnostic& diag) {
  SQLHENV env = SharedEnvironment(diag);
  if (env == SQL_NULL_HENV) return nullptr;
  std::unique_ptr<PhysicalConnection> c(new PhysicalConnection);
  c->dbc_ = OdbcHandle::Allocate(SQL_HANDLE_DBC, env, diag);
  if (!c->dbc_) return nullptr;
  SQLSetConnectAttr(c->dbc(), SQL_ATTR_LOGIN_TIMEOUT, reinterpret_cast<SQLPOINTER>(kLoginTimeoutSeconds), 0);
  std::u16string w_dsn = ToUtf16(dsn), w_user = ToUtf16(user), w_password = ToUtf16(password);
  SQLRETURN r =
      SQLConnectW(c->dbc(), reinterpret_cast<SQLWCHAR*>(w_dsn.data()), static_cast<SQLSMALLINT>(w_dsn.size()),
                  reinterpret_cast<SQLWCHAR*>(w_user.data()), static_cast<SQLSMALLINT>(w_user.size()),
                  reinterpret_cast<SQLWCHAR*>(w_password.data()), static_cast<SQLSMALLINT>(w_password.size()));
  if (!SQL_SUCCEEDED(r)) {
    diag = ReadDiagnostic(SQL_HANDLE_DBC, c->dbc(), TextMode::kUtf16);
    return nullptr;
  }
  c->connected_ = true;
  c->dialect_ = &Dialect::ForDbmsName(DbmsName(c->dbc()));
  c->mode_ = c->dialect_->kind() == Dialect::Kind::kSqlite ? TextMode::kUtf8 : TextMode::kUtf16;
  SQLUINTEGER getdata = 0;
  if (SQL_SUCCEEDED(SQLGetInfo(c->dbc(), SQL_GETDATA_EXTENSIONS, &getdata, sizeof getdata, nullptr)))
    c->reads_within_blocks_ = (getdata & SQL_GD_BLOCK) && (getdata & SQL_GD_BOUND);
  if (c->dialect_->kind() == Dialect::Kind::kSqlite) {
    Diagnostic ignored;
    // The driver ignores the statement time-out; what a statement of ours
    // waits for longest is another writer's lock.
    if (auto limit = StatementTimeout(); limit.count() > 0)
      c->ExecDirect("PRAGMA busy_timeout=" + std::to_string(limit.count() * 1000), ignored);
    // WAL lets readers go on while one writer works; the mode is kept in the
    // database file, so this only does work the first time.
    c->ExecDirect("PRAGMA journal_mode=WAL", ignored);
  }
  return c;
}

PhysicalConnection::~PhysicalConnection() {
  if (connected_) {
    if (in_transaction_) {
      Diagnostic ignored;
      Rollback(ignored);
    }
    SQLDisconnect(dbc());
  }
}

bool PhysicalConnection::ExecDirect(std::string_view sql, Diagnostic& diag) {
  OdbcHandle stmt = OdbcHandle::Allocate(SQL_HANDLE_STMT, dbc(), diag);
  if (!stmt) return false;
  SQLRETURN r = ExecuteText(stmt.get(), mode_, std::string(sql), {});
  if (!SQL_SUCCEEDED(r)) {
    diag = ReadDiagnostic(SQL_HANDLE_STMT, stmt.get(), mode_);
    NoteFailure(diag);
    return false;
  }
  return true;
}

bool PhysicalConnection::Begin(Diagnostic& diag) {
  if (ORVANE_SEAM_FAILS(kBegin, diag)) {
    NoteFailure(diag);
    return false;
  }
  std::string_view begin = dialect_->BeginStatement();
  if (!begin.empty()) {
    if (!ExecDirect(begin, diag)) return false;
  } else {
    SQLRETURN r = SQLSetConnectAttr(dbc(), SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_OFF), 0);
    if (!SQL_SUCCEEDED(r)) {
      diag = ReadDiagnostic(SQL_HANDLE_DBC, dbc(), mode_);
      NoteFailure(diag);
      return false;
    }
  }
  in_transaction_ = true;
  return true;
}

bool PhysicalConnection::Commit(Diagnostic& diag) {
  if (ORVANE_SEAM_FAILS(kCommit, diag)) {
    NoteFailure(diag);
  } else if (EndTransaction(true, diag)) {
    return true;
  }
  Diagnostic ignored;
  if (in_transaction_) EndTransaction(false, ignored);
  return false;
}

bool PhysicalConnection::Rollback(Diagnostic& diag) { return EndTransaction(false, diag); }

bool PhysicalConnection::EndTransaction(bool commit, Diagnostic& diag) {
  std::string_view statement = commit ? dialect_->CommitStatement() : dialect_->RollbackStatement();
  if (!statement.empty()) {
    if (!ExecDirect(statement, diag)) return false;
    in_transaction_ = false;
    return true;
  }
  SQLRETURN r = SQLEndTran(SQL_HANDLE_DBC, dbc(), commit ? SQL_COMMIT : SQL_ROLLBACK);
  if (!SQL_SUCCEEDED(r)) {
    diag = ReadDiagnostic(SQL_HANDLE_DBC, dbc(), mode_);
    NoteFailure(diag);
    return false;
  }
  in_transaction_ = false;
  r = SQLSetConnectAttr(dbc(), SQL_ATTR_AUTOCOMMIT, reinterpret_cast<SQLPOINTER>(SQL_AUTOCOMMIT_ON), 0);
  if (!SQL_SUCCEEDED(r)) {
    diag = ReadDiagnostic(SQL_HANDLE_DBC, dbc(), mode_);
    broken_ = true;  // autocommit left off would leak into the next borrower
    return false;
  }
  return true;
}

void PhysicalConnection::NoteFailure(const Diagnostic& diag) {
  if (IsLostConnection(diag.sqlstate)) broken_ = true;
}

bool PhysicalConnection::IsDead() const {
  SQLUINTEGER dead = SQL_CD_FALSE;
  if (!SQL_SUCCEEDED(SQLGetConnectAttr(dbc(), SQL_ATTR_CONNECTION_DEAD, &dead, 0, nullptr))) return false;
  return dead == SQL_CD_TRUE;
}

}  // namespace orvane::data
