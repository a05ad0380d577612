// Membership queries: a user's sections (request code 108), a section's
// members (104), and Get_g_cd, the section codes of a user for the user
// registration.
#pragma once

#include <string>
#include <vector>

#include "data/db.h"
#include "data/sql.h"
#include "dispatch/request_context.h"

namespace orvane::members {

// Rows S_USER_ID,S_SEC_KBN,S_USER_SEQ,S_POST_CD,S_SEC_CD,SE_SEC_NM,S_ST_YMD,
// S_ED_YMD, the primary membership first.
void GetUsersGroup(RequestContext& ctx, const std::string& user_id);
// Rows NAME_KJ,USER_ID,SEC_KBN,POST_CD,MAIL,ST_YMD,ED_YMD of the section's
// members; with `current_only` "1" only those current today (ctx.clock()).
void GetSpecificMember(RequestContext& ctx, const std::string& sec_cd, const std::string& sort_column,
                       const std::string& sort_type, const std::string& current_only);

// The codes of every section `user_id` belongs to (any period, deleted or
// not), on the caller's open connection. A failure has code -1 and
// "Get_g_cd" CR LF in front of the data layer's trail. `sec_codes` is
// replaced by the codes when there are any and left as it was otherwise.
Status Get_g_cd(const RequestContext& ctx, data::Connection& conn, const std::string& user_id,
                std::vector<std::string>& sec_codes);

data::Sql UsersGroupSql(const RequestContext& ctx, const std::string& user_id);
// `today` is yyyymmdd.
data::Sql SpecificMemberSql(const RequestContext& ctx, const std::string& sec_cd, const std::string& sort_column,
                            const std::string& sort_type, const std::string& current_only, const std::string& today);
data::Sql SectionCodesSql(const RequestContext& ctx, const std::string& user_id);

}  // namespace orvane::members
