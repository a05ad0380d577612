// The database part of an import: its lines applied on the write frame's
// one transaction through the operations' own storage routines, in the
// order that keeps every reference whole: sections parents first (adds,
// changes, then every path below a renamed or moved section), users,
// memberships (deletes first), menu rights, then the deleted users and the
// deleted sections (deepest first). Each applied line gets its report line
// ("done"; a new user's generated password); the mail side comes later,
// after the commit (import_mail.h).
#pragma once

#include <functional>
#include <string>

#include "data/password_mode.h"
#include "dispatch/request_context.h"
#include "dispatch/write_frame.h"
#include "transfer/import_plan.h"
#include "transfer/import_report.h"

namespace orvane::transfer {

// Called after each applied line: lines done, lines in all.
using Progress = std::function<void(size_t done, size_t total)>;

// REQUIRES: `frame` has begun its transaction with the user and section
// tables held, and `plan` was made inside it and can be applied.
// False at the first failure: the frame has answered, `failure` names the
// line and why, and the caller rolls back.
bool ApplyLines(RequestContext& ctx, WriteFrame& frame, const ImportPlan& plan, const std::string& jnji_mode,
                data::PasswordMode passwords, ImportReport& report, const Progress& progress, std::string& failure);

}  // namespace orvane::transfer
