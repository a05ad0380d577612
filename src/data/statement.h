// The few raw statement calls the routines share: execute text with bound
// text parameters, read the column labels of a result, read one column of
// the current row. Text is UTF-8 on our side in both text modes.
#pragma once

#include <sql.h>

#include <string>
#include <vector>

#include "data/odbc_handle.h"

namespace orvane::data {

// Binds every value as a text parameter and executes `text`. SQL_NO_DATA
// (a searched update or delete that touched no row) counts as success.
SQLRETURN ExecuteText(SQLHSTMT stmt, TextMode mode, const std::string& text, const std::vector<std::string>& params);

// The result's column labels, upper-cased for matching without regard to
// case. False when the driver cannot describe the result.
bool ReadColumnLabels(SQLHSTMT stmt, TextMode mode, std::vector<std::string>& labels);

// Column `column` (1-based) of the current row; null becomes "". False when
// the driver reports an error.
bool ReadColumn(SQLHSTMT stmt, TextMode mode, SQLUSMALLINT column, std::string& out);

}  // namespace orvane::data
