#include "dispatch/query_frame.h"

#include "base/text.h"
#include "dispatch/required_keys.h"

namespace orvane {

bool QueryFrame::Open() {
  std::string dsn;
  if (!ReadRequiredKey(ctx_, "LOCAL_DB_DSN", "ERROR:READINFOFILE_SV_FOLDER", dsn)) return false;
  if (Failed(data::Com_funDbOpen(dsn, "", "", conn_))) {
    ctx_.Write("ERROR:DBOPEN");
    return false;
  }
  return true;
}

bool QueryFrame::Select(const data::Sql& sql, data::Recordset& rs) {
  if (!Failed(data::Com_funSelect(conn_, sql, rs))) return true;
  FailAndClose("ERROR:DBSELECT");
  return false;
}

bool QueryFrame::SelectP(const data::Sql& sql, data::Recordset& rs) {
  if (!Failed(data::Com_funSelectP(conn_, sql, rs))) return true;
  FailAndClose("ERROR:DBSELECT");
  return false;
}

bool QueryFrame::Fetch(data::Recordset& rs, const std::vector<std::string>& names, std::vector<std::string>& values,
                       bool& eof, std::string_view fetch_error) {
  if (!Failed(data::Com_funfetchData(rs, names, values, eof))) return true;
  ctx_.Write(fetch_error);
  return false;
}

bool QueryFrame::FetchRows(data::Recordset& rs, const std::vector<std::string>& names, const RowHandler& on_row,
                           std::string_view fetch_error) {
  std::vector<std::string> values;
  for (;;) {
    bool eof = false;
    if (!Fetch(rs, names, values, eof, fetch_error)) return false;
    if (eof || !on_row(values)) return true;
  }
}

bool QueryFrame::CloseRecordset(data::Recordset& rs) {
  if (!Failed(data::Com_funRecordsetClose(rs))) return true;
  FailAndClose("ERROR:RSCLOSE");
  return false;
}

bool QueryFrame::Close() {
  if (!Failed(data::Com_funDbClose(conn_))) return true;
  ctx_.Write("ERROR:DBCLOSE");
  return false;
}

bool QueryFrame::Failed(const Status& status) {
  ctx_.NoteFailure(status);
  return !status.ok();
}

void QueryFrame::FailAndClose(std::string_view code) {
  ctx_.Write(code);
  Close();
}

void AppendListRow(std::string& list, const std::vector<std::string>& values) {
  if (!list.empty()) list += ',';
  list += text::Join(values, ",");
}

bool RunQuery(RequestContext& ctx, const data::Sql& sql, const std::vector<std::string>& names, Rows rows,
              const RowHandler& on_row, std::string_view fetch_error) {
  QueryFrame frame(ctx);
  data::Recordset rs;
  if (!frame.Open() || !frame.Select(sql, rs)) return false;
  if (rows == Rows::kAll) {
    if (!frame.FetchRows(rs, names, on_row, fetch_error)) return false;
  } else {
    // Deliberately no end test: an empty result hands on the empty values
    // that the fetch leaves, so the answer keeps its shape.
    std::vector<std::string> values;
    bool eof = false;
    if (!frame.Fetch(rs, names, values, eof, fetch_error)) return false;
    on_row(values);
  }
  if (!frame.CloseRecordset(rs)) return false;
  frame.Close();
  return true;
}

bool WriteListQuery(RequestContext& ctx, const data::Sql& sql, const std::vector<std::string>& names,
                    std::string_view fetch_error) {
  std::string list;
  auto add = [&list](const std::vector<std::string>& values) {
    AppendListRow(list, values);
    return true;
  };
  if (!RunQuery(ctx, sql, names, Rows::kAll, add, fetch_error)) return false;
  ctx.Write(list);
  return true;
}

}  // namespace orvane
