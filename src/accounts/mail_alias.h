// A user's mail alias: the check that it collides with no other user's ID
// or alias, and addalias.exe to delete the old alias and add the new one,
// through the exe proxy or on this machine (ML_ISLOCAL). Called by the user
// registration inside its open transaction.
#pragma once

#include <string>
#include <string_view>

#include "accounts/user_form.h"
#include "base/status.h"
#include "data/db.h"
#include "dispatch/request_context.h"

namespace orvane::accounts {

// Arguments (the caller's open connection, then):
//   mode          "1" delete, "2" change, "3" create: the registration's
//                 update flag;
//   toolFolder    the mail server's folder ending in "\", prefix of every
//                 command line;
//   user          the user being registered: its ID, and the requested
//                 alias (mail_ad) and its flag (mail_fl, "1" = in use);
//   before        the alias and flag before the change (for a delete,
//                 those of the stored user).
// With the flag "1" the alias is looked up in the user table of the
// current table set; another user holding it as ID or active alias fails
// with the "funAdmMailAlias1" message before any command runs. Then the old
// alias is deleted and the new one added as the mode and flags say. When a
// new user's alias is refused with "alias exists", the account just created
// is deleted again. ML_SERVER missing: "ERROR:READINFOFILE_SV_FOLDER" on the
// response and an answered status. Code 0, or -1 with the trail: the
// collision message, "Com052_funAdmMailAlias1" CR LF and the database
// routine's trail, or the refused command's reply or error text.
Status funAdmMailAlias1(RequestContext& ctx, data::Connection& conn, std::string_view mode, std::string_view toolFolder,
                        const UserForm& user, const MailBefore& before);

}  // namespace orvane::accounts
