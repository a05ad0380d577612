// QueryFrame: the sequence every page query repeats, written once. Read
// LOCAL_DB_DSN, open, select, fetch, close the recordset, close the
// connection; each failing step writes its answer code at the moment it
// fails, and the steps after a failure add what the system adds:
//
//   no LOCAL_DB_DSN    "ERROR:READINFOFILE_SV_FOLDER", stop
//   open fails         "ERROR:DBOPEN", stop
//   select fails       "ERROR:DBSELECT", close the connection, stop
//   fetch fails        "ERROR:DBFETCH" (or the operation's own text), stop
//   recordset close    "ERROR:RSCLOSE", close the connection, stop
//   connection close   "ERROR:DBCLOSE", and the answer is still written
//
// "close the connection" after a failure writes "ERROR:DBCLOSE" behind the
// first code when that close fails too. Whatever is left open when the frame
// goes away is released by the handles without writing anything.
//
// The database's account of a failure goes to the request's log line
// (RequestContext::NoteFailure), never into the answer.
//
// Used by the read operations of org/, members/ and the list choice of
// accounts/. One frame per request thread; not shared.
#pragma once

#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "data/db.h"
#include "dispatch/request_context.h"

namespace orvane {

inline constexpr std::string_view kDbFetchError = "ERROR:DBFETCH";

// One row's values in the order of the field names. Return false to stop
// reading (the rest of the result is left unread).
using RowHandler = std::function<bool(const std::vector<std::string>& values)>;

class QueryFrame {
 public:
  explicit QueryFrame(RequestContext& ctx) : ctx_(ctx) {}

  // Reads LOCAL_DB_DSN and opens the connection with the default login.
  bool Open();
  data::Connection& connection() { return conn_; }

  // Com_funSelect / Com_funSelectP. On failure: "ERROR:DBSELECT", close.
  bool Select(const data::Sql& sql, data::Recordset& rs);
  bool SelectP(const data::Sql& sql, data::Recordset& rs);

  // One Com_funfetchData. On failure writes `fetch_error` and returns false.
  bool Fetch(data::Recordset& rs, const std::vector<std::string>& names, std::vector<std::string>& values, bool& eof,
             std::string_view fetch_error = kDbFetchError);
  // Fetches until the end of the result or until `on_row` returns false.
  bool FetchRows(data::Recordset& rs, const std::vector<std::string>& names, const RowHandler& on_row,
                 std::string_view fetch_error = kDbFetchError);

  // Com_funRecordsetClose. On failure: "ERROR:RSCLOSE", close the connection.
  bool CloseRecordset(data::Recordset& rs);
  // Com_funDbClose. On failure writes "ERROR:DBCLOSE" and returns false;
  // the page queries write their answer behind it all the same.
  bool Close();

  // Writes `code`, then closes the connection ("ERROR:DBCLOSE" if that fails).
  void FailAndClose(std::string_view code);
  // True when `status` failed; its cause goes to the request's log line.
  bool Failed(const Status& status);

 private:
  RequestContext& ctx_;
  data::Connection conn_;
};

// Appends one row to a list answer: the values joined by ",", and a ","
// in front unless the list is still empty. No quoting, no escaping.
void AppendListRow(std::string& list, const std::vector<std::string>& values);

// How many rows of the result a query reads.
enum class Rows {
  kAll,        // until the end of the result
  kFirstOnly,  // one fetch and no end test: an empty result gives empty values
};

// The whole frame for one statement. `on_row` sees each row read; returns
// true when the caller is to write its answer now (success, or only the
// connection close failed), false when an error answer has been written.
bool RunQuery(RequestContext& ctx, const data::Sql& sql, const std::vector<std::string>& names, Rows rows,
              const RowHandler& on_row, std::string_view fetch_error = kDbFetchError);

// RunQuery over every row, writing the rows as a list answer; true when the
// list was written.
bool WriteListQuery(RequestContext& ctx, const data::Sql& sql, const std::vector<std::string>& names,
                    std::string_view fetch_error = kDbFetchError);

}  // namespace orvane
