// The system's database routines (Com_fun...). Every routine returns a
// Status with code 0 on success and 1 on failure and never throws; a
// failure's trail is
//   "[" + routine + "]" + "エラー番号 " + native error + " " + "[SQLSTATE] " + message
// followed, for the routines that run SQL, by "<BR><BR>SQL : " and the
// rendered statement (the data source name for Com_funDbOpen), and its
// cause is the driver's native error, SQLSTATE and message.
//
// Checks of this layer report native error 0 and their own SQLSTATE:
// 08003 not open, 42000 statement refused before sending (unknown table or
// bad piece), 25000 transaction state, HY107 position out of range, 42S22
// field name not in the result, HY010 recordset not open.
//
// Connections come from an in-process pool keyed by data source; Connection
// and Recordset are RAII handles: a Connection left open returns itself to
// the pool (rolled back, autocommit on) when destroyed, and closing a
// Connection frees the statements of its Recordsets first. A Connection and
// its Recordsets belong to one thread.
//
// Transactions: a failed statement inside a transaction rolls the whole unit
// back at once, on every backend; until Com_funRollbackTrans (or a new
// Com_funBeginTrans) every statement and the commit of that unit fail with
// 25000, so a unit is committed whole or not at all.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "base/array2d.h"
#include "base/status.h"
#include "data/dialect.h"
#include "data/sql.h"

namespace orvane::data {

class Dialect;
class ConnectionImpl;
class RecordsetImpl;

class Connection {
 public:
  Connection();
  ~Connection();
  Connection(Connection&&) noexcept;
  Connection& operator=(Connection&&) noexcept;

  bool IsOpen() const;
  // The dialect of the open connection's database (SQL_DBMS_NAME).
  const Dialect& dialect() const;
  ConnectionImpl* impl() const { return impl_.get(); }

 private:
  friend Status Com_funDbOpen(const std::string&, const std::string&, const std::string&, Connection&);
  friend Status Com_funDbClose(Connection&);
  std::unique_ptr<ConnectionImpl> impl_;
};

class Recordset {
 public:
  Recordset();
  ~Recordset();
  Recordset(Recordset&&) noexcept;
  Recordset& operator=(Recordset&&) noexcept;

  bool IsOpen() const;
  RecordsetImpl* impl() const { return impl_.get(); }
  void Reset(std::unique_ptr<RecordsetImpl> impl);

 private:
  std::unique_ptr<RecordsetImpl> impl_;
};

// Opens `dsn` (a data source name of odbc.ini). With user and password both
// empty the default login kop47/kop47 is used; otherwise the two as given.
// The connection comes from the pool when one is idle.
Status Com_funDbOpen(const std::string& dsn, const std::string& user, const std::string& password, Connection& conn);
Status Com_funDbClose(Connection& conn);

Status Com_funExecsql(Connection& conn, const Sql& sql);
// Forward-only result.
Status Com_funSelect(Connection& conn, const Sql& sql, Recordset& rs);
// Positionable result (static cursor, or an emulation that skips rows).
Status Com_funSelectP(Connection& conn, const Sql& sql, Recordset& rs);
// Moves a Com_funSelectP result to the 1-based row `position`; a position
// below 1 or past the last row fails.
Status Com_funSetAbsolutePos(Recordset& rs, short position);

// Reads the current row's columns named `names` (matched without regard to
// case) into `values` (same order; null as ""), then moves to the next row.
// At the end of the result `eof` is set and nothing is read: `values` stays
// as it was, or becomes names.size() empty texts when its size differs.
Status Com_funfetchData(Recordset& rs, const std::vector<std::string>& names, std::vector<std::string>& values,
                        bool& eof);
Status Com_funRecordsetClose(Recordset& rs);
// All remaining rows, [column][row]: one entry per result column, each with
// the same number of rows. An exhausted or empty result gives the columns
// with no rows (status 0).
Status Com_funRecodsetToArray(Recordset& rs, Array2D& out);

// Holds `table` (a known table) against other writers until the open
// transaction ends, so that what the transaction reads to decide its
// writes cannot change under it; readers go on. A failure's trail is that
// of Com_funExecsql with the lock statement.
Status LockTable(Connection& conn, std::string_view table);

// The system's read sequence on an open connection, written once:
// Com_funSelect, Com_funfetchData until the end of the result or until
// `on_row` returns false, Com_funRecordsetClose. Returns the first failing
// routine's status; `failed_step`, when given, says which step it was (the
// operations answer "ERROR:DBSELECT", "ERROR:DBFETCH" or "ERROR:RSCLOSE" by
// it).
enum class ReadStep { kSelect, kFetch, kClose };
using RowVisitor = std::function<bool(const std::vector<std::string>& values)>;
Status SelectRows(Connection& conn, const Sql& sql, const std::vector<std::string>& names, const RowVisitor& on_row,
                  ReadStep* failed_step = nullptr);

// SelectRows for the first row only: its values in `row` (left as they
// were when there is none) and `found`.
Status SelectFirstRow(Connection& conn, const Sql& sql, const std::vector<std::string>& names,
                      std::vector<std::string>& row, bool& found, ReadStep* failed_step = nullptr);
// The first row's `column` ("" and `found` false when there is no row).
Status SelectFirstValue(Connection& conn, const Sql& sql, const std::string& column, std::string& value,
                        bool* found = nullptr, ReadStep* failed_step = nullptr);
// The first row's column CNT as a number (0 when there is no row).
Status SelectCount(Connection& conn, const Sql& sql, long& count);

// One transaction per writing operation, no nesting. On SQLite the write
// lock is taken at the start (BEGIN IMMEDIATE).
Status Com_funBeginTrans(Connection& conn);
Status Com_funCommitTrans(Connection& conn);
Status Com_funRollbackTrans(Connection& conn);

// Points unixODBC at the odbc.ini beside the configuration file (when there
// is one) before data sources are looked up: it is then read before the
// system's /etc/odbc.ini. Call once at start, before any thread opens a
// connection (it sets the environment variable ODBCINI).
void UseOdbcIniBeside(const std::string& config_folder);

// Closes the idle pooled connections (at exit, and in tests between
// databases).
void ClosePooledConnections();

// The time limit of every statement from now on (SQL_ATTR_QUERY_TIMEOUT;
// 0: none, the default). A statement that runs out fails as any failed
// statement does. SQLite's driver ignores the attribute, so there the same
// limit bounds the wait for another writer's lock (busy timeout, in place
// of the data source's Timeout). Idle pooled connections are closed, so
// every connection in use afterwards has the limit.
void SetStatementTimeout(std::chrono::seconds limit);
std::chrono::seconds StatementTimeout();

}  // namespace orvane::data
