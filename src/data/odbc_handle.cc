#include "data/odbc_handle.h"

#include <sqlucode.h>

#include "data/db.h"
#include "data/utf16.h"

namespace orvane::data {

Diagnostic OwnDiagnostic(std::string_view sqlstate, std::string message) {
  return Diagnostic{0, std::string(sqlstate), std::move(message)};
}

Diagnostic ReadDiagnostic(SQLSMALLINT type, SQLHANDLE handle, TextMode mode) {
  Diagnostic d;
  SQLINTEGER native = 0;
  SQLSMALLINT length = 0;
  SQLRETURN r;
  if (mode == TextMode::kUtf16) {
    SQLWCHAR state[6] = {};
    SQLWCHAR message[1024] = {};
    r = SQLGetDiagRecW(type, handle, 1, state, &native, message, 1024, &length);
    if (SQL_SUCCEEDED(r)) {
      d.sqlstate = ToUtf8(std::u16string_view(reinterpret_cast<const char16_t*>(state), 5));
      if (length > 1023) length = 1023;
      d.message = ToUtf8(std::u16string_view(reinterpret_cast<const char16_t*>(message), length));
    }
  } else {
    SQLCHAR state[6] = {};
    SQLCHAR message[2048] = {};
    r = SQLGetDiagRec(type, handle, 1, state, &native, message, sizeof message, &length);
    if (SQL_SUCCEEDED(r)) {
      d.sqlstate.assign(reinterpret_cast<const char*>(state), 5);
      if (length > static_cast<SQLSMALLINT>(sizeof message - 1)) length = sizeof message - 1;
      d.message.assign(reinterpret_cast<const char*>(message), length);
    }
  }
  if (!SQL_SUCCEEDED(r)) return OwnDiagnostic("HY000", "The ODBC call failed without a diagnostic record");
  d.native = native;
  return d;
}

bool IsLostConnection(std::string_view sqlstate) { return sqlstate.substr(0, 2) == "08" || sqlstate == "57P01"; }

OdbcHandle& OdbcHandle::operator=(OdbcHandle&& other) noexcept {
  if (this != &other) {
    Reset();
    type_ = other.type_;
    handle_ = other.handle_;
    other.handle_ = SQL_NULL_HANDLE;
  }
  return *this;
}

OdbcHandle OdbcHandle::Allocate(SQLSMALLINT type, SQLHANDLE parent, Diagnostic& diag) {
  OdbcHandle h;
  SQLHANDLE raw = SQL_NULL_HANDLE;
  SQLRETURN r = SQLAllocHandle(type, parent, &raw);
  if (!SQL_SUCCEEDED(r)) {
    if (parent != SQL_NULL_HANDLE) {
      SQLSMALLINT parent_type = type == SQL_HANDLE_STMT ? SQL_HANDLE_DBC : SQL_HANDLE_ENV;
      diag = ReadDiagnostic(parent_type, parent, TextMode::kUtf16);
    } else {
      diag = OwnDiagnostic("HY001", "Could not allocate an ODBC handle");
    }
    return h;
  }
  h.type_ = type;
  h.handle_ = raw;
  if (type == SQL_HANDLE_STMT) {
    // Per statement: a driver keeps the attribute with the statement handle.
    if (auto limit = StatementTimeout(); limit.count() > 0)
      SQLSetStmtAttr(raw, SQL_ATTR_QUERY_TIMEOUT, reinterpret_cast<SQLPOINTER>(static_cast<SQLULEN>(limit.count())),
                     0);
  }
  return h;
}

void OdbcHandle::Reset() {
  if (handle_ != SQL_NULL_HANDLE) SQLFreeHandle(type_, handle_);
  handle_ = SQL_NULL_HANDLE;
}

}  // namespace orvane::data
