#include "accounts/section_mail_list.h"

#include <utility>
#include <vector>

#include "accounts/mail_list_members.h"
#include "base/text.h"
#include "dispatch/required_keys.h"

namespace orvane::accounts {

Status funDelMailList(RequestContext& ctx, data::Connection& conn, std::string_view sectionCode,
                      std::string_view userID) {
  std::string server;
  if (!ReadRequiredKey(ctx, "ML_SERVER", "ERROR:READINFOFILE_SV_FOLDER", server)) return Status::Answered();
  data::Sql sql;
  sql << "select IMAIL_LIST from " << data::Table(ctx.SEC_MST) << " where SEC_CD = " << data::Quoted(sectionCode);
  std::string list;
  if (Status s = data::SelectFirstValue(conn, sql, "IMAIL_LIST", list); !s.ok())
    return std::move(s).From("funDelMailList");
  list = text::Trim(list);
  if (list.empty()) return Status::Ok();
  return funDelMailListUser(ctx, list, text::Trim(userID) + "@" + server).From("funDelMailList");
}

data::Sql SectionCodesSql(const RequestContext& ctx, const std::string& user_id) {
  data::Sql sql;
  sql << "select sec_cd"
      << " from " << data::Table(ctx.SEC_MEM) << " where USER_ID =" << data::Quoted(user_id);
  return sql;
}

Status Get_g_cd(const RequestContext& ctx, data::Connection& conn, const std::string& user_id,
                std::vector<std::string>& sec_codes) {
  bool first = true;
  auto add = [&](const std::vector<std::string>& values) {
    if (first) sec_codes.clear();  // no rows leave the caller's array as it was
    first = false;
    sec_codes.push_back(values[0]);
    return true;
  };
  return data::SelectRows(conn, SectionCodesSql(ctx, user_id), {"sec_cd"}, add).From("Get_g_cd");
}

}  // namespace orvane::accounts
