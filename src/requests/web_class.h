// WebClass_Start: the entry of every request. Fixes the table names from
// "DBFlg", publishes the menu-code list, finds the request code in the
// request table, reads its fields and runs its one operation.
#pragma once

#include "dispatch/request_context.h"
#include "requests/request_table.h"

namespace orvane {

// Returns the route that ran, or null for an unknown code.
const RequestRoute* WebClass_Start(RequestContext& ctx);

// WebClass_Start with a last line of defence: anything thrown becomes an
// HTTP 500 with an "ERROR:" answer instead of a dead request thread.
const RequestRoute* RunRequest(RequestContext& ctx);

}  // namespace orvane
