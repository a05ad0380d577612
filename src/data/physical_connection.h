// PhysicalConnection: one open ODBC connection to a data source, the thing
// the pool keeps between operations. Knows its dialect and text mode and
// whether a transaction is open. Used by one thread at a time.
#pragma once

#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "data/dialect.h"
#include "data/odbc_handle.h"

namespace orvane::data {

class PhysicalConnection {
 public:
  // Connects to `dsn` as `user`/`password`; null with `diag` set on failure.
  static std::unique_ptr<PhysicalConnection> Open(const std::string& dsn, const std::string& user,
                                                  const std::string& password, Diagnostic& diag);
  ~PhysicalConnection();
  PhysicalConnection(const PhysicalConnection&) = delete;
  PhysicalConnection& operator=(const PhysicalConnection&) = delete;

  SQLHDBC dbc() const { return dbc_.get(); }
  const Dialect& dialect() const { return *dialect_; }
  TextMode text_mode() const { return mode_; }
  // The driver can position within a fetched block of rows and read a bound
  // column there again (SQL_GD_BLOCK and SQL_GD_BOUND): a long value cut by
  // its bound buffer can then be read whole from any row of the block.
  bool reads_within_blocks() const { return reads_within_blocks_; }

  // Runs a statement without parameters and drops its result.
  bool ExecDirect(std::string_view sql, Diagnostic& diag);
  // Begins, commits or rolls back the one transaction; a failed commit is
  // rolled back, so no transaction is left open either way.
  bool Begin(Diagnostic& diag);
  bool Commit(Diagnostic& diag);
  bool Rollback(Diagnostic& diag);
  bool in_transaction() const { return in_transaction_; }

  // Notes a failure on this connection: a lost connection is never reused.
  void NoteFailure(const Diagnostic& diag);
  bool broken() const { return broken_; }
  // True when the driver knows the connection is gone (no round trip).
  bool IsDead() const;

  // Pool key: data source, login and the odbc.ini it resolved from.
  std::string key;
  // Names of the statements the server keeps planned for this connection
  // (SelectFirstValuePrepared): they live as long as the connection.
  std::set<std::string> prepared;

 private:
  PhysicalConnection() = default;
  bool EndTransaction(bool commit, Diagnostic& diag);

  OdbcHandle dbc_;
  bool connected_ = false;
  const Dialect* dialect_ = nullptr;
  TextMode mode_ = TextMode::kUtf16;
  bool in_transaction_ = false;
  bool broken_ = false;
  bool reads_within_blocks_ = false;
};

}  // namespace orvane::data
