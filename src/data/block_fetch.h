// Rows fetched in blocks into bound column buffers (SQLBindCol with
// SQL_ATTR_ROW_ARRAY_SIZE) instead of one SQLGetData call per cell. A value
// longer than its buffer is read whole by SQLGetData: within the block where
// the driver can position there (SQL_GD_BLOCK), otherwise the block is one
// row and the value is read before the next fetch. Values are the same bytes
// the per-cell path gives: null as "", text UTF-8 in both text modes.
#pragma once

#include <sql.h>

#include <memory>
#include <string>
#include <vector>

#include "data/odbc_handle.h"

namespace orvane::data {

class BlockFetch {
 public:
  // Characters (code units) a cell holds before it counts as long.
  static constexpr size_t kCellUnits = 256;
  // Blocks start small, so that the many results of a row or a few take no
  // large buffer (one would be mapped and unmapped per result, which costs
  // every thread of the process), and grow once the first one comes full.
  static constexpr size_t kFirstBlock = 16;
  static constexpr size_t kRowsPerBlock = 256;

  // Binds the `columns` columns of the executed statement; `in_blocks` says
  // whether blocks of many rows may be used. False when the driver refuses a
  // binding: the caller then reads cell by cell.
  bool Bind(SQLHSTMT stmt, TextMode mode, size_t columns, bool in_blocks);
  // The next block; SQL_NO_DATA at the end.
  SQLRETURN Fetch(SQLHSTMT stmt);
  size_t rows() const { return fetched_; }
  // The statement runs again from its start: no block is held.
  void Restart() { fetched_ = 0; }
  // Row `i` of the block (0-based) into `row`. False with the driver's error.
  bool Read(SQLHSTMT stmt, size_t i, std::vector<std::string>& row);

 private:
  // Buffers and bindings for blocks of `rows` rows.
  bool Allocate(SQLHSTMT stmt, size_t rows);

  TextMode mode_ = TextMode::kUtf8;
  bool in_blocks_ = false;
  size_t columns_ = 0, block_ = 1, unit_ = 1;
  std::unique_ptr<char[]> cells_;  // [column][row][kCellUnits + 1 units], written by the driver
  std::vector<SQLLEN> lengths_;    // [column][row]
  std::vector<SQLUSMALLINT> status_;
  SQLULEN fetched_ = 0;
};

}  // namespace orvane::data
