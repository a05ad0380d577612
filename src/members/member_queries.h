// Membership queries: a user's sections (request code 108) and a
// section's members (104).
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

data::Sql UsersGroupSql(const RequestContext& ctx, const std::string& user_id);
// `today` is yyyymmdd.
data::Sql SpecificMemberSql(const RequestContext& ctx, const std::string& sec_cd, const std::string& sort_column,
                            const std::string& sort_type, const std::string& current_only, const std::string& today);

}  // namespace orvane::members
