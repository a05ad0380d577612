// The mailing lists an import brings along after its commit, by the rules
// the requests follow: a section whose list is set to a new name (a group's
// add or change) puts its members of today on that list; a deleted user (a
// user's delete) leaves the lists of the sections it belonged to. Adding,
// changing or removing a membership leaves the lists alone, as its request
// does on the live tables. A failed list command is its line's to retry.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "data/db.h"
#include "dispatch/request_context.h"
#include "transfer/import_plan.h"

namespace orvane::transfer {

// The lists a line's commands go to, each once: a section line's new list;
// a deleted user's, of the sections it belonged to before the import, each
// as the import leaves it (a deleted section's as it was). Empty for every
// other line.
std::vector<std::string> ListsOfLine(const PlanLine& line, const Organisation& before, const Organisation& after);

// One list command of a report line: for `kind` sections, the members of
// section `key` current on `today` join `list`; for users, user `key`
// leaves `list`. Empty when it went through, else why not.
std::string SendListCommand(RequestContext& ctx, data::Connection& conn, FileKind kind, const std::string& key,
                            const std::string& list, const std::string& today);

}  // namespace orvane::transfer
