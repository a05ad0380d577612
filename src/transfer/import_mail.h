// The mail side of an import, run after its commit as the requests run it
// (only when ML_MODE is "2"): per user line the account command
// (adduser.exe, by the old and new mail-use flags) and the alias commands
// (addalias.exe), and the mailing lists the lines bring along
// (import_lists.h). A failure is the line's result in the report, not a
// rollback; a report fed back retries just those.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "data/db.h"
#include "dispatch/request_context.h"
#include "transfer/import_plan.h"
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

// After the commit: the mail commands of every report line of `plan`
// (`before`: the organisation the import began from; `today` as the
// import's stamp), each line's result "done" or what failed.
void SendImportMail(RequestContext& ctx, data::Connection& conn, const MailSide& mail, const ImportPlan& plan,
                    const Organisation& before, const std::string& today, ImportReport& report);

// Sends again the commands of every report line whose mail failed, with the
// user and section as stored now; each such line's result becomes "done"
// or the new failure. A new account's password that the import's users.csv
// gave is taken from `files` (the import's files, in `encoding`): the
// report never holds it. Refused when `files` are not the import's; a
// failure when the configuration or the database cannot be read.
Status RetryMail(RequestContext& ctx, ImportReport& report, const std::vector<ImportFile>& files, Encoding encoding);

}  // namespace orvane::transfer
