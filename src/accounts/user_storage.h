// A user's rows: creating a user with the rows every user needs (password
// history, own schedule openness, menu rights), changing one, and deleting
// one with every row the groupware keeps for it and its attachment folders.
// All run on the caller's open connection inside its transaction; the
// caller rolls back on failure.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "base/status.h"
#include "data/db.h"
#include "data/password_mode.h"
#include "dispatch/request_context.h"
#include "dispatch/write_frame.h"

namespace orvane::accounts {

// Positions of the user-data array that the registration fills from the
// form and that the storage and mail routines read.
enum UserField : size_t {
  kUserId = 0,       // USER_ID, also the mail account name
  kNameKj = 1,       // NAME_KJ
  kNameKn = 2,       // NAME_KN
  kPassword = 3,     // PASSWORD
  kMail = 4,         // MAIL: the alias
  kImailFlg = 5,     // IMAIL_FLG: "1" = the alias is in use
  kMailUseFlg = 6,   // MAIL_USE_FLG: "1" = the user has a mail account
  kExtTel = 7,       // EXT_TEL
  kPostNm = 8,       // POST_NM
  kDspNm = 9,        // DSP_NM
  kUpdateFlag = 10,  // "3" add, "2" change, "1" delete
  kMailNm = 11,      // MAIL_NM
  kUserFieldCount = 12,
};
using UserData = std::vector<std::string>;  // kUserFieldCount entries

// The stored values a delete needs to clean up the mail server.
struct StoredUser {
  std::string USER_ID, MAIL, MAIL_USE_FLG, IMAIL_FLG;
};

// A storage routine's failure is Refused (the ID or alias is another
// user's; the trail is the message) or Answered (a configuration key was
// missing; its code is on the response) or a plain failure.
// Creates the user: the ID and alias checks, the user row, T_PASSGEN
// (generation 01 the new password), T_SCHOPEN when DAIRI_ONESELFFLG is "1",
// and the menu row by the rule in docs/operations.md. In the argon2id
// password mode (`passwords`) the user row and T_PASSGEN get the
// password's hash; an empty password is stored empty.
Status funInsUser(RequestContext& ctx, data::Connection& conn, const UserData& u, const WriteFrame::Stamp& stamp,
                  data::PasswordMode passwords);
// Changes the user row; switches the two mail menus when the mail-use flag
// moves away from `oldMailUseFlag` and the mail server gives accounts. In
// the argon2id password mode a password is stored as its hash, and an
// empty one keeps the stored password (and its date).
Status funUpdUser(RequestContext& ctx, data::Connection& conn, const UserData& u, const std::string& oldMailUseFlag,
                  const WriteFrame::Stamp& stamp, data::PasswordMode passwords);
// Deletes the user's rows (on the work tables the personal data stay) and
// then its attachment folders.
Status funDelUser(RequestContext& ctx, data::Connection& conn, const std::string& userID);

// Reads the stored user on a short connection of its own to `dsn`. A
// missing user leaves `out` empty. Failure: "DeleteUserInfo1" (the routine's
// name in the system's trails) CR LF and the data layer's trail.
Status ReadStoredUser(const RequestContext& ctx, const std::string& dsn, const std::string& userID, StoredUser& out);

}  // namespace orvane::accounts
