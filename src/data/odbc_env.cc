#include "data/odbc_env.h"

#include <dlfcn.h>
#include <sqlext.h>

#include <cstdlib>
#include <filesystem>
#include <mutex>

#include "data/db.h"

namespace orvane::data {

SQLHENV SharedEnvironment(Diagnostic& diag) {
  // Never freed: connections in the pool may outlive every static object.
  static SQLHENV env = [] {
    // Drivers bring in unixODBC's installer library, which caches every
    // odbc.ini lookup; it would be unloaded with the last driver and its
    // cache stranded. Kept loaded for the life of the process instead.
    dlopen("libodbcinst.so.2", RTLD_NOW | RTLD_GLOBAL | RTLD_NODELETE);
    SQLHENV h = SQL_NULL_HENV;
    if (!SQL_SUCCEEDED(SQLAllocHandle(SQL_HANDLE_ENV, SQL_NULL_HANDLE, &h))) return SQLHENV(SQL_NULL_HENV);
    SQLSetEnvAttr(h, SQL_ATTR_ODBC_VERSION, reinterpret_cast<SQLPOINTER>(SQL_OV_ODBC3), 0);
    return h;
  }();
  if (env == SQL_NULL_HENV) diag = OwnDiagnostic("HY001", "Could not allocate the ODBC environment");
  return env;
}

std::string CurrentOdbcIni() {
  const char* v = std::getenv("ODBCINI");
  return v ? v : "";
}

void UseOdbcIniBeside(const std::string& config_folder) {
  // unixODBC reads the user data sources from $ODBCINI at every lookup; an
  // absent file would be created empty, so only an existing one is named.
  std::error_code ec;
  std::filesystem::path ini = std::filesystem::absolute(std::filesystem::path(config_folder) / "odbc.ini", ec);
  if (ec || !std::filesystem::is_regular_file(ini, ec)) return;
  setenv("ODBCINI", ini.c_str(), 1);
}

}  // namespace orvane::data
