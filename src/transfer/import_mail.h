// The mail side of an import, run after its commit as the user
// registration runs it inside its own: per user line the account command
// (adduser.exe, by the old and new mail-use flags) and the alias commands
// (addalias.exe), only when ML_MODE is "2". A failure is the line's result
// in the report, not a rollback; a report fed back retries just those.
#pragma once

#include <string>
#include <string_view>

#include "data/db.h"
#include "dispatch/request_context.h"
#include "transfer/import_report.h"
#include "transfer/organisation.h"

namespace orvane::transfer {

struct MailSide {
  bool enabled = false;
  std::string folder;  // the tools' folder, ending in "\"
};

// Reads ML_MODE and, with "2", the mail server's keys. False (the missing
// key's code written to `ctx`) when a key it needs is missing.
bool ReadMailSide(RequestContext& ctx, MailSide& out);

// "mail_use/alias/alias_in_use" of a stored user row (exported columns).
std::string MailBefore(const Row& user);

// Sends a user line's commands; empty when all went through, else why not.
// `action` "add", "change" or "delete"; `user` the row after the line
// (before it for a delete); `password` the new one ("" when none).
std::string SendUserMail(RequestContext& ctx, data::Connection& conn, const MailSide& mail, std::string_view action,
                         const Row& user, const std::string& password, std::string_view mail_before);

// Sends again the commands of every report line whose mail failed, with the
// user as stored now; each such line's result becomes "done" or the new
// failure. False with `error` when the database cannot be read.
bool RetryMail(RequestContext& ctx, ImportReport& report, std::string& error);

}  // namespace orvane::transfer
