// A user's rows: creating a user with the rows every user needs (password
// history, own schedule openness, menu rights), changing one, and deleting
// one with every row the groupware keeps for it and its attachment folders.
// All run on the caller's open connection inside its transaction; the
// caller rolls back on failure.
#pragma once

#include <string>
#include <vector>

#include "accounts/user_form.h"
#include "base/status.h"
#include "data/db.h"
#include "data/password_mode.h"
#include "dispatch/request_context.h"
#include "dispatch/write_frame.h"

namespace orvane::accounts {

// A storage routine's failure is Refused (the ID or alias is another
// user's; the trail is the message) or Answered (a configuration key was
// missing; its code is on the response) or a plain failure.
// Creates the user: the ID and alias checks, the user row, T_PASSGEN
// (generation 01 the new password), T_SCHOPEN when DAIRI_ONESELFFLG is "1",
// and the menu row by the rule in docs/operations.md. In the argon2id
// password mode (`passwords`) the user row and T_PASSGEN get the
// password's hash; an empty password is stored empty.
// With `later`, the rows beside the user row (T_PASSGEN, T_SCHOPEN, the
// menu row), which none of the checks reads, are handed to the caller to
// write instead (the import writes many users' rows in few statements).
Status funInsUser(RequestContext& ctx, data::Connection& conn, const UserForm& u, const WriteFrame::Stamp& stamp,
                  data::PasswordMode passwords, std::vector<data::Sql>* later = nullptr);
// Changes the user row; switches the two mail menus when the mail-use flag
// moves away from `oldMailUseFlag` and the mail server gives accounts. In
// the argon2id password mode a password is stored as its hash, and an
// empty one keeps the stored password (and its date).
Status funUpdUser(RequestContext& ctx, data::Connection& conn, const UserForm& u, const std::string& oldMailUseFlag,
                  const WriteFrame::Stamp& stamp, data::PasswordMode passwords);
// Deletes the user's rows (on the work tables the personal data stay) and
// then its attachment folders.
Status funDelUser(RequestContext& ctx, data::Connection& conn, const std::string& userID);

// Reads the stored user's mail values on a short connection of its own to
// `dsn`. A missing user leaves `out` as it was. Failure: "DeleteUserInfo1" (the routine's
// name in the system's trails) CR LF and the data layer's trail.
Status ReadStoredUser(const RequestContext& ctx, const std::string& dsn, const std::string& userID, MailBefore& out);

}  // namespace orvane::accounts
