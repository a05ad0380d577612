#include "data/block_fetch.h"

#include <sqlext.h>
#include <sqlucode.h>

#include <cstring>

#include "data/statement.h"
#include "data/utf16.h"

namespace orvane::data {

bool BlockFetch::Bind(SQLHSTMT stmt, TextMode mode, size_t columns, bool in_blocks) {
  mode_ = mode;
  columns_ = columns;
  in_blocks_ = in_blocks;
  unit_ = mode == TextMode::kUtf16 ? sizeof(char16_t) : 1;
  if (!SQL_SUCCEEDED(SQLSetStmtAttr(stmt, SQL_ATTR_ROW_BIND_TYPE, SQL_BIND_BY_COLUMN, 0)) ||
      !SQL_SUCCEEDED(SQLSetStmtAttr(stmt, SQL_ATTR_ROWS_FETCHED_PTR, &fetched_, 0)))
    return false;
  return Allocate(stmt, in_blocks ? kFirstBlock : 1);
}

bool BlockFetch::Allocate(SQLHSTMT stmt, size_t rows) {
  block_ = rows;
  const size_t cell = (kCellUnits + 1) * unit_;  // the driver writes a terminator
  // Not cleared: the driver writes what is read.
  cells_ = std::make_unique_for_overwrite<char[]>(columns_ * block_ * cell);
  lengths_.assign(columns_ * block_, 0);
  status_.assign(block_, SQL_ROW_SUCCESS);
  if (!SQL_SUCCEEDED(SQLSetStmtAttr(stmt, SQL_ATTR_ROW_ARRAY_SIZE, reinterpret_cast<SQLPOINTER>(block_), 0)) ||
      !SQL_SUCCEEDED(SQLSetStmtAttr(stmt, SQL_ATTR_ROW_STATUS_PTR, status_.data(), 0)))
    return false;
  const SQLSMALLINT c_type = mode_ == TextMode::kUtf16 ? SQL_C_WCHAR : SQL_C_CHAR;
  for (size_t c = 0; c < columns_; ++c) {
    if (!SQL_SUCCEEDED(SQLBindCol(stmt, static_cast<SQLUSMALLINT>(c + 1), c_type, cells_.get() + c * block_ * cell,
                                  static_cast<SQLLEN>(cell), &lengths_[c * block_])))
      return false;
  }
  return true;
}

SQLRETURN BlockFetch::Fetch(SQLHSTMT stmt) {
  // The rows of the block before have all been read: the buffers may go.
  if (in_blocks_ && block_ < kRowsPerBlock && fetched_ == block_ && !Allocate(stmt, kRowsPerBlock)) return SQL_ERROR;
  fetched_ = 0;
  return SQLFetch(stmt);
}

bool BlockFetch::Read(SQLHSTMT stmt, size_t i, std::vector<std::string>& row) {
  if (status_[i] == SQL_ROW_ERROR) return false;
  row.resize(columns_);
  const size_t cell = (kCellUnits + 1) * unit_;
  bool positioned = block_ == 1;
  for (size_t c = 0; c < columns_; ++c) {
    const SQLLEN length = lengths_[c * block_ + i];
    std::string& out = row[c];
    if (length == SQL_NULL_DATA) {
      out.clear();
      continue;
    }
    if (length == SQL_NO_TOTAL || static_cast<size_t>(length) > kCellUnits * unit_ ||
        static_cast<size_t>(length) % unit_ != 0) {
      // Possibly cut by the buffer: read whole from the driver.
      if (!positioned) {
        if (!SQL_SUCCEEDED(SQLSetPos(stmt, static_cast<SQLSETPOSIROW>(i + 1), SQL_POSITION, SQL_LOCK_NO_CHANGE)))
          return false;
        positioned = true;
      }
      if (!ReadColumn(stmt, mode_, static_cast<SQLUSMALLINT>(c + 1), out)) return false;
      continue;
    }
    const char* data = cells_.get() + (c * block_ + i) * cell;
    if (mode_ == TextMode::kUtf16) {
      std::u16string_view units(reinterpret_cast<const char16_t*>(data), static_cast<size_t>(length) / unit_);
      out = ToUtf8(units);
    } else {
      out.assign(data, static_cast<size_t>(length));
    }
  }
  return true;
}

}  // namespace orvane::data
