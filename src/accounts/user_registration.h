// User registration (requests 204 add, 205 change, 206 delete): RegistUser1.
// One request is one transaction over the user's rows; the mail server is
// told about the account and the alias inside it, before the commit, and is
// not told again when a later step fails. A deleted user leaves the mailing
// lists of its sections after the commit.
#pragma once

#include <string>
#include <string_view>

#include "accounts/user_form.h"
#include "dispatch/request_context.h"

namespace orvane::accounts {

// `flag` "3" add, "2" change, "1" delete. `before` holds the page's old
// mail-use flag, alias and alias flag on add and change; a delete reads
// them from the stored row. Writes "OK" or one "ERROR:" answer.
void RegistUser1(RequestContext& ctx, const std::string& flag, const UserForm& user, const MailBefore& before);

// The adduser.exe mode for the old and new mail-use flags under update flag
// `flag`; empty when no account command is due.
std::string AccountMode(std::string_view flag, std::string_view old_flag, std::string_view new_flag);

}  // namespace orvane::accounts
