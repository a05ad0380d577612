// The history's changing endpoints and the deleted list: POST
// /api/history/restore, POST /api/history/undo and GET
// /api/history/deleted, behind the administrator check of /api/search;
// the POSTs pass the origin check of every change (docs/api.md).
#pragma once

#include "server/router.h"
#include "server/server_state.h"

namespace orvane {

void RegisterRestoreRoutes(Router& server, ServerState& state);

}  // namespace orvane
