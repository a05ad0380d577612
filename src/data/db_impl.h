// Internals behind the Com_fun... routines of db.h: what a Connection and a
// Recordset hold, and the error texts. Not for use outside src/data.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "data/block_fetch.h"
#include "data/db.h"
#include "data/physical_connection.h"

namespace orvane::data {

// A statement handle shared by a recordset and the connection that made it,
// so that closing the connection frees the statement before the connection
// goes back to the pool, whatever the recordset's owner does later.
struct StatementSlot {
  OdbcHandle stmt;
  PhysicalConnection* conn = nullptr;  // null once the connection is closed
};

class ConnectionImpl {
 public:
  explicit ConnectionImpl(std::unique_ptr<PhysicalConnection> phys) : phys_(std::move(phys)) {}
  ~ConnectionImpl();  // frees its statements, then returns the connection to the pool

  PhysicalConnection& phys() { return *phys_; }
  std::shared_ptr<StatementSlot> NewStatement(Diagnostic& diag);
  // A statement failed: a lost connection is marked, and an open
  // transaction is rolled back whole at once, so that nothing of the unit
  // can be committed later. The unit stays failed until rolled back.
  void StatementFailed(const Diagnostic& diag);
  bool unit_failed = false;

 private:
  std::unique_ptr<PhysicalConnection> phys_;
  std::vector<std::weak_ptr<StatementSlot>> statements_;
};

class RecordsetImpl {
 public:
  SQLHSTMT stmt() const { return slot->stmt.get(); }
  bool Usable() const { return slot && slot->conn && slot->stmt; }
  // Moves to the next row; reads its columns only when `read` (skipping
  // rows costs no copies). At the end `eof` is set.
  bool MoveNext(bool read, Diagnostic& diag);
  // Moves to the 1-based row `target`; false past the last row.
  bool MoveTo(long target, Diagnostic& diag);
  int ColumnOf(std::string_view name) const;  // -1 when absent

  std::shared_ptr<StatementSlot> slot;
  TextMode mode = TextMode::kUtf8;
  std::vector<std::string> labels;  // upper-cased
  std::vector<std::string> row;     // the current row, when !eof
  bool eof = true;
  // Forward-only results read their rows in blocks into bound buffers;
  // null when read cell by cell (positionable results, or a refused bind).
  std::unique_ptr<BlockFetch> block;
  size_t block_row = 0;  // the current row within the block
  // The names of the last fetch and the columns they name.
  std::vector<std::string> fetch_names;
  std::vector<size_t> fetch_columns;
  bool positionable = false;  // opened by Com_funSelectP
  bool scrollable = false;    // the driver gave a static cursor
  long position = 0;          // 1-based number of the current row
  // Kept for emulated positioning, which runs the statement again to go back.
  std::string statement;
  std::vector<std::string> params;

 private:
  bool ReadRow(Diagnostic& diag);
};

// "[routine]エラー番号 n [SQLSTATE] message", and the "<BR><BR>SQL : ..." tail.
std::string ErrorText(std::string_view routine, const Diagnostic& d);
std::string ErrorText(std::string_view routine, const Diagnostic& d, std::string_view sql);
// A failed routine: code 1, the error text as the trail, `d` as the cause.
Status DbFailure(std::string_view routine, const Diagnostic& d);
Status DbFailure(std::string_view routine, const Diagnostic& d, std::string_view sql);

// Before a statement is sent: the connection is open, the statement was
// built without a refused piece and the unit has not failed.
bool CheckStatement(Connection& conn, const Sql& sql, Diagnostic& d);

// Diagnostics of this layer's own checks.
Diagnostic NotOpen();
Diagnostic UnitFailed();

}  // namespace orvane::data
