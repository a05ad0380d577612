// OdbcHandle: one ODBC handle (environment, connection or statement), freed
// when the owner goes away; and the diagnostics read from a handle after a
// failed call. Move-only; a handle is used by one thread at a time.
#pragma once

#include <sql.h>
#include <sqlext.h>

#include <string>
#include <string_view>

#include "base/status.h"

namespace orvane::data {

// How text crosses the ODBC boundary on one connection. Debian's SQLite
// driver has no wide entry points and passes UTF-8 bytes through untouched;
// Unicode drivers (psqlODBC, FreeTDS) convert narrow text by the process
// locale, so they get UTF-16 through the W calls.
enum class TextMode { kUtf8, kUtf16 };

// The driver's native error number, the five-character SQLSTATE and the
// message (UTF-8).
using Diagnostic = Cause;

// A diagnostic made by this layer itself (no driver involved).
Diagnostic OwnDiagnostic(std::string_view sqlstate, std::string message);

// The first diagnostic record of `handle`; a generic one when the driver
// left none.
Diagnostic ReadDiagnostic(SQLSMALLINT type, SQLHANDLE handle, TextMode mode);

// SQLSTATE class 08 (connection exception) or PostgreSQL's 57P01 (the
// server shut the session down): the connection cannot be used again.
bool IsLostConnection(std::string_view sqlstate);

class OdbcHandle {
 public:
  OdbcHandle() = default;
  ~OdbcHandle() { Reset(); }
  OdbcHandle(OdbcHandle&& other) noexcept : type_(other.type_), handle_(other.handle_) {
    other.handle_ = SQL_NULL_HANDLE;
  }
  OdbcHandle& operator=(OdbcHandle&& other) noexcept;
  OdbcHandle(const OdbcHandle&) = delete;
  OdbcHandle& operator=(const OdbcHandle&) = delete;

  // Allocates a handle of `type` under `parent`; on failure the result is
  // empty and `diag` says why.
  static OdbcHandle Allocate(SQLSMALLINT type, SQLHANDLE parent, Diagnostic& diag);

  SQLHANDLE get() const { return handle_; }
  SQLSMALLINT type() const { return type_; }
  explicit operator bool() const { return handle_ != SQL_NULL_HANDLE; }
  void Reset();

 private:
  SQLSMALLINT type_ = 0;
  SQLHANDLE handle_ = SQL_NULL_HANDLE;
};

}  // namespace orvane::data
