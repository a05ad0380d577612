#include "accounts/section_mail_list.h"

#include <vector>

#include "accounts/mail_list_members.h"
#include "base/text.h"
#include "dispatch/required_keys.h"

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
  std::string list;
  auto keep = [&list](const std::vector<std::string>& row) {
    list = text::Trim(row[0]);
    return false;  // the first row decides
  };
  if (Status s = data::SelectRows(conn, sql, {"IMAIL_LIST"}, keep); !s.ok()) return failed(s.trail());
  std::string error;
  if (!list.empty() && funDelMailListUser(ctx, list, text::Trim(userID) + "@" + server, error) != 0)
    return failed(error);
  status = 0;
  return status;
}

}  // namespace orvane::accounts
