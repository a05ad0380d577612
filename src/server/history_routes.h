// GET /api/history: the change history a page at a time, newest first,
// behind the same administrator check as /api/search (docs/api.md).
#pragma once

#include "server/router.h"
#include "server/server_state.h"

namespace orvane {

void RegisterHistoryRoutes(Router& server, ServerState& state);

}  // namespace orvane
