// The result routines: plain and positionable selects, positioning,
// fetching by name, the array copy and closing.
#include <sqlext.h>

#include <climits>
#include <optional>

#include "base/text.h"
#include "base/whole_number.h"
#include "data/db_impl.h"
#include "data/failure_seam.h"
#include "data/statement.h"

namespace orvane::data {
namespace {

Diagnostic RecordsetNotOpen() { return OwnDiagnostic("HY010", "Recordset not open"); }
Diagnostic ConnectionGone() { return OwnDiagnostic("08003", "The recordset's connection is closed"); }

// The checks every result routine makes first.
bool CheckRecordset(const Recordset& rs, Diagnostic& d) {
  if (!rs.IsOpen()) {
    d = RecordsetNotOpen();
    return false;
  }
  if (!rs.impl()->Usable()) {
    d = ConnectionGone();
    return false;
  }
  return true;
}

void NoteResultFailure(RecordsetImpl& rec, const Diagnostic& d) {
  if (rec.slot && rec.slot->conn) rec.slot->conn->NoteFailure(d);
}

Status OpenResult(const char* routine, Connection& conn, const Sql& sql, Recordset& rs, bool positionable) {
  rs.Reset(nullptr);  // a fresh recordset object, as the system makes one per call
  Diagnostic d;
  if (!CheckStatement(conn, sql, d)) {
    return DbFailure(routine, d, sql.Render());
  }
  ConnectionImpl& impl = *conn.impl();
  PhysicalConnection& phys = impl.phys();
  auto rec = std::make_unique<RecordsetImpl>();
  rec->slot = impl.NewStatement(d);
  bool ok = rec->slot != nullptr;
  if (ok && ORVANE_SEAM_FAILS(kStatement, d)) {
    ok = false;
    impl.StatementFailed(d);
  } else if (ok) {
    rec->mode = phys.text_mode();
    rec->positionable = positionable;
    rec->statement = sql.Statement(phys.dialect());
    rec->params = sql.Parameters(phys.dialect());
    if (positionable) {
      // A static cursor where the driver has one; otherwise positioning is
      // emulated on a forward-only cursor.
      SQLSetStmtAttr(rec->stmt(), SQL_ATTR_CURSOR_TYPE, reinterpret_cast<SQLPOINTER>(SQL_CURSOR_STATIC), 0);
    }
    SQLRETURN r = ExecuteText(rec->stmt(), rec->mode, rec->statement, rec->params);
    ok = SQL_SUCCEEDED(r) && ReadColumnLabels(rec->stmt(), rec->mode, rec->labels);
    if (!ok) {
      d = ReadDiagnostic(SQL_HANDLE_STMT, rec->stmt(), rec->mode);
      impl.StatementFailed(d);
    }
  }
  if (ok && !positionable && !rec->labels.empty()) {
    rec->block = std::make_unique<BlockFetch>();
    if (!rec->block->Bind(rec->stmt(), rec->mode, rec->labels.size(), phys.reads_within_blocks())) {
      // Cell by cell, as before: undo whatever part of the binding took.
      SQLFreeStmt(rec->stmt(), SQL_UNBIND);
      SQLSetStmtAttr(rec->stmt(), SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(1), 0);
      SQLSetStmtAttr(rec->stmt(), SQL_ATTR_ROWS_FETCHED_PTR, nullptr, 0);
      SQLSetStmtAttr(rec->stmt(), SQL_ATTR_ROW_STATUS_PTR, nullptr, 0);
      rec->block.reset();
    }
  }
  if (ok && positionable) {
    SQLULEN type = SQL_CURSOR_FORWARD_ONLY;
    SQLGetStmtAttr(rec->stmt(), SQL_ATTR_CURSOR_TYPE, &type, 0, nullptr);
    rec->scrollable = type != SQL_CURSOR_FORWARD_ONLY;
  }
  // Like the system's recordsets, a result opens on its first row.
  if (ok && !rec->labels.empty()) ok = rec->MoveNext(true, d);
  if (!ok) {
    return DbFailure(routine, d, sql.Render());
  }
  rs.Reset(std::move(rec));
  return Status::Ok();
}

// Com_funfetchData past its checks: reads the current row's columns by
// name, then moves to the next row.
bool FetchRow(RecordsetImpl& rec, const std::vector<std::string>& names, std::vector<std::string>& values, bool& eof,
              Diagnostic& d) {
  if (rec.eof) {
    eof = true;
    if (values.size() != names.size()) values.assign(names.size(), "");
    return true;
  }
  eof = false;
  values.resize(names.size());
  // A caller fetches row after row by the same names: they are looked up
  // once and the columns they name kept.
  if (rec.fetch_names != names) {
    rec.fetch_columns.clear();
    for (const std::string& name : names) {
      int column = rec.ColumnOf(name);
      if (column < 0) {
        rec.fetch_names.clear();
        d = OwnDiagnostic("42S22", "Column not found: " + name);
        return false;
      }
      rec.fetch_columns.push_back(static_cast<size_t>(column));
    }
    rec.fetch_names = names;
  }
  for (size_t i = 0; i < names.size(); ++i) values[i] = rec.row[rec.fetch_columns[i]];
  return rec.MoveNext(true, d);
}

}  // namespace

bool RecordsetImpl::ReadRow(Diagnostic& diag) {
  row.resize(labels.size());
  for (size_t c = 0; c < labels.size(); ++c) {
    if (!ReadColumn(stmt(), mode, static_cast<SQLUSMALLINT>(c + 1), row[c])) {
      diag = ReadDiagnostic(SQL_HANDLE_STMT, stmt(), mode);
      return false;
    }
  }
  return true;
}

bool RecordsetImpl::MoveNext(bool read, Diagnostic& diag) {
  if (block && block_row + 1 < block->rows()) {
    ++block_row;  // the next row of the block in hand
  } else {
    SQLRETURN r = block        ? block->Fetch(stmt())
                  : scrollable ? SQLFetchScroll(stmt(), SQL_FETCH_NEXT, 0)
                               : SQLFetch(stmt());
    if (r == SQL_NO_DATA || (block && SQL_SUCCEEDED(r) && block->rows() == 0)) {
      eof = true;
      row.clear();
      return true;
    }
    if (!SQL_SUCCEEDED(r)) {
      diag = ReadDiagnostic(SQL_HANDLE_STMT, stmt(), mode);
      return false;
    }
    block_row = 0;
  }
  eof = false;
  ++position;
  if (!read) return true;
  if (!block) return ReadRow(diag);
  if (block->Read(stmt(), block_row, row)) return true;
  diag = ReadDiagnostic(SQL_HANDLE_STMT, stmt(), mode);
  return false;
}

bool RecordsetImpl::MoveTo(long target, Diagnostic& diag) {
  Diagnostic out_of_range = OwnDiagnostic("HY107", "Row value out of range: " + std::to_string(target));
  if (target < 1) {
    diag = out_of_range;
    return false;
  }
  if (scrollable) {
    SQLRETURN r = SQLFetchScroll(stmt(), SQL_FETCH_ABSOLUTE, target);
    if (r == SQL_NO_DATA) {
      eof = true;
      row.clear();
      diag = out_of_range;
      return false;
    }
    if (!SQL_SUCCEEDED(r)) {
      diag = ReadDiagnostic(SQL_HANDLE_STMT, stmt(), mode);
      return false;
    }
    eof = false;
    position = target;
    return ReadRow(diag);
  }
  if (target < position || (eof && position > 0)) {
    // Going back on a forward-only cursor: run the statement again.
    SQLFreeStmt(stmt(), SQL_CLOSE);
    SQLFreeStmt(stmt(), SQL_RESET_PARAMS);
    if (!SQL_SUCCEEDED(ExecuteText(stmt(), mode, statement, params))) {
      diag = ReadDiagnostic(SQL_HANDLE_STMT, stmt(), mode);
      return false;
    }
    position = 0;
    eof = false;
    if (block) block->Restart();
    block_row = 0;
  }
  while (position < target) {
    if (!MoveNext(position + 1 == target, diag)) return false;
    if (eof) {
      diag = out_of_range;
      return false;
    }
  }
  return true;
}

int RecordsetImpl::ColumnOf(std::string_view name) const {
  std::string wanted = text::ToUpperAscii(name);
  for (size_t c = 0; c < labels.size(); ++c)
    if (labels[c] == wanted) return static_cast<int>(c);
  return -1;
}

Recordset::Recordset() = default;
Recordset::~Recordset() = default;
Recordset::Recordset(Recordset&&) noexcept = default;
Recordset& Recordset::operator=(Recordset&&) noexcept = default;
bool Recordset::IsOpen() const { return impl_ != nullptr; }
void Recordset::Reset(std::unique_ptr<RecordsetImpl> impl) { impl_ = std::move(impl); }

Status Com_funSelect(Connection& conn, const Sql& sql, Recordset& rs) {
  return OpenResult("Com_funSelect", conn, sql, rs, false);
}

Status Com_funSelectP(Connection& conn, const Sql& sql, Recordset& rs) {
  return OpenResult("Com_funSelectP", conn, sql, rs, true);
}

Status Com_funSetAbsolutePos(Recordset& rs, short position) {
  Diagnostic d;
  if (CheckRecordset(rs, d)) {
    RecordsetImpl& rec = *rs.impl();
    if (!rec.positionable) {
      d = OwnDiagnostic("HY106", "The recordset was not opened for positioning");
    } else if (rec.MoveTo(position, d)) {
      return Status::Ok();
    } else {
      NoteResultFailure(rec, d);
    }
  }
  return DbFailure("Com_funSetAbsolutePos", d);
}

Status Com_funfetchData(Recordset& rs, const std::vector<std::string>& names, std::vector<std::string>& values,
                        bool& eof) {
  Diagnostic d;
  if (CheckRecordset(rs, d)) {
    RecordsetImpl& rec = *rs.impl();
    if (!ORVANE_SEAM_FAILS(kFetch, d) && FetchRow(rec, names, values, eof, d)) return Status::Ok();
    NoteResultFailure(rec, d);
  }
  return DbFailure("Com_funfetchData", d);
}

Status Com_funRecordsetClose(Recordset& rs) {
  if (!rs.IsOpen()) {
    return DbFailure("Com_funRecordsetClose", RecordsetNotOpen());
  }
  Diagnostic d;
  bool failed = ORVANE_SEAM_FAILS(kRecordsetClose, d);
  if (failed) NoteResultFailure(*rs.impl(), d);
  rs.Reset(nullptr);  // freed whether or not the close reports a failure
  return failed ? DbFailure("Com_funRecordsetClose", d) : Status::Ok();
}

Status Com_funRecodsetToArray(Recordset& rs, Array2D& out) {
  Diagnostic d;
  if (CheckRecordset(rs, d)) {
    RecordsetImpl& rec = *rs.impl();
    bool ok = !ORVANE_SEAM_FAILS(kArrayCopy, d);
    if (ok) out.assign(rec.labels.size(), {});
    while (ok && !rec.eof) {
      for (size_t c = 0; c < rec.labels.size(); ++c) out[c].push_back(std::move(rec.row[c]));
      ok = rec.MoveNext(true, d);
    }
    if (ok) return Status::Ok();
    NoteResultFailure(rec, d);
  }
  return DbFailure("Com_funRecodsetToArray", d);
}

Status SelectRows(Connection& conn, const Sql& sql, const std::vector<std::string>& names, const RowVisitor& on_row,
                  ReadStep* failed_step) {
  auto step = [failed_step](ReadStep s) {
    if (failed_step) *failed_step = s;
  };
  Recordset rs;
  step(ReadStep::kSelect);
  if (Status s = Com_funSelect(conn, sql, rs); !s.ok()) return s;
  step(ReadStep::kFetch);
  std::vector<std::string> values;
  for (;;) {
    bool eof = false;
    if (Status s = Com_funfetchData(rs, names, values, eof); !s.ok()) return s;
    if (eof || !on_row(values)) break;
  }
  step(ReadStep::kClose);
  return Com_funRecordsetClose(rs);
}

Status SelectFirstRow(Connection& conn, const Sql& sql, const std::vector<std::string>& names,
                      std::vector<std::string>& row, bool& found, ReadStep* failed_step) {
  found = false;
  auto keep = [&](const std::vector<std::string>& values) {
    row = values;
    found = true;
    return false;
  };
  return SelectRows(conn, sql, names, keep, failed_step);
}

Status SelectFirstValue(Connection& conn, const Sql& sql, const std::string& column, std::string& value, bool* found,
                        ReadStep* failed_step) {
  std::vector<std::string> row;
  bool any = false;
  Status s = SelectFirstRow(conn, sql, {column}, row, any, failed_step);
  value = any ? row[0] : std::string();
  if (found) *found = any;
  return s;
}

Status SelectCount(Connection& conn, const Sql& sql, long& count) {
  std::string value;
  count = 0;
  if (Status s = SelectFirstValue(conn, sql, "CNT", value); !s.ok() || value.empty()) return s;
  std::optional<long long> read = ParseWholeNumber(value, 0, LONG_MAX, {.blanks_around = true});
  if (!read) return Status::DbFailure("CNT is not a whole number: " + value);
  count = static_cast<long>(*read);
  return Status::Ok();
}

}  // namespace orvane::data
