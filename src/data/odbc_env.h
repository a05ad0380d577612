// The one ODBC environment of the process and where data sources are looked
// up. The environment is made on first use and lives until the process ends.
#pragma once

#include <sql.h>

#include <string>

#include "data/odbc_handle.h"

namespace orvane::data {

// The shared environment (ODBC 3 behaviour); SQL_NULL_HENV with `diag` set
// when it cannot be made. Thread-safe.
SQLHENV SharedEnvironment(Diagnostic& diag);

// The odbc.ini that data source names resolve from first ("" when the
// user's and the system's files are used).
std::string CurrentOdbcIni();

}  // namespace orvane::data
