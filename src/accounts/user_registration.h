// User registration (requests 204 add, 205 change, 206 delete): RegistUser1.
// One request is one transaction over the user's rows; the mail server is
// told about the account and the alias inside it, before the commit, and is
// not told again when a later step fails. A deleted user leaves the mailing
// lists of its sections after the commit.
#pragma once

#include <string>
#include <string_view>

#include "dispatch/request_context.h"

namespace orvane::accounts {

// `flag` "3" add, "2" change, "1" delete. The old mail-use flag, alias and
// alias flag come from the page on add and change; a delete reads them from
// the stored row. Writes "OK" or one "ERROR:" answer.
void RegistUser1(RequestContext& ctx, const std::string& flag, const std::string& user_cd, const std::string& user_kj,
                 const std::string& user_kn, const std::string& user_ps, const std::string& mail_ad,
                 const std::string& mail_fl, const std::string& ext_tel, const std::string& post_nm,
                 const std::string& disp_nm, const std::string& mail_ufl, const std::string& mail_nm,
                 const std::string& old_mail_ufl, const std::string& old_alias, const std::string& old_alias_fl);

// The adduser.exe mode for the old and new mail-use flags under update flag
// `flag`; empty when no account command is due.
std::string AccountMode(std::string_view flag, std::string_view old_flag, std::string_view new_flag);

}  // namespace orvane::accounts
