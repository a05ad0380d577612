// The import's second half: the plan made again inside one write frame
// (the same frame every changing request runs in, so the session check,
// the table locks and the rollback on any failure are the requests'), then
// its lines applied through the operations' own storage routines on that
// one transaction: sections parents first, then users, memberships and
// rights, then the users and sections the import deletes (sections
// deepest first). One commit, or none: a failure anywhere leaves the
// database as it was. What follows a commit in the operations is deferred
// until the whole import is committed: the mail server's account and alias
// commands per user line (a failing one is noted on its line of the
// report, nothing rolls back) and the drawn tree.
//
// One import at a time in a process: a second one is refused at once.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "dispatch/request_context.h"
#include "transfer/import_plan.h"
#include "transfer/import_report.h"
#include "transfer/import_steps.h"

namespace orvane::transfer {

// Runs the import as the session user of `ctx` (its configuration,
// application store and clock; the live tables). `plan` receives the plan
// made inside the transaction. The report holds every line's outcome, or
// its `refusal` when nothing changed (a line that errs, a failed step,
// another import running).
void ApplyImport(RequestContext& ctx, const std::vector<ImportFile>& files, const ImportOptions& options,
                 ImportPlan& plan, ImportReport& report, const Progress& progress = {});

// Sets the request-scoped members an import needs on a context that no
// request dispatch filled (the live tables, the menu codes).
void PrepareImportContext(RequestContext& ctx);

}  // namespace orvane::transfer
