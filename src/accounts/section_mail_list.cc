#include "accounts/section_mail_list.h"

#include <vector>

#include "accounts/mail_list_members.h"
#include "dispatch/required_keys.h"
#include "dispatch/text.h"

namespace orvane::accounts {

short funDelMailList(RequestContext& ctx, data::Connection& conn, std::string_view sectionCode, std::string_view userID,
                     std::string& errorText) {
  short status = -1;
  std::string server;
  if (!ReadRequiredKey(ctx, "ML_SERVER", "ERROR:READINFOFILE_SV_FOLDER", server)) return status;
  auto failed = [&](const std::string& error) {
    errorText = "funDelMailList" + std::string(text::kCrLf) + error;
    return status;
  };
  data::Sql sql;
  sql << "select IMAIL_LIST from " << data::Table(ctx.SEC_MST) << " where SEC_CD = " << data::Quoted(sectionCode);
  std::string error;
  data::Recordset rs;
  std::vector<std::string> row;
  bool eof = false;
  if (data::Com_funSelect(conn, sql, rs, error) != 0 ||
      data::Com_funfetchData(rs, {"IMAIL_LIST"}, row, eof, error) != 0 || data::Com_funRecordsetClose(rs, error) != 0)
    return failed(error);
  std::string list = eof ? std::string() : text::Trim(row[0]);
  if (!list.empty() && funDelMailListUser(ctx, list, text::Trim(userID) + "@" + server, error) != 0)
    return failed(error);
  status = 0;
  return status;
}

}  // namespace orvane::accounts
