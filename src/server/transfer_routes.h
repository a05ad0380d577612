// The transfer screen's endpoints (docs/api.md), behind the same
// administrator check as /orvane; the changing ones (POST) also behind the
// cross-site gate:
//   GET  /api/export?file=sections.csv[&encoding=shift_jis]   one CSV file
//   POST /api/import/preview      the plan of the uploaded files, as JSON
//   POST /api/import/apply        the import; its report as JSON and CSV
//   GET  /api/import/progress     lines done of the import running
//   POST /api/import/retry-mail   a report's failed mail commands again
#pragma once

#include "server/router.h"
#include "server/server_state.h"

namespace orvane {

void RegisterTransferRoutes(Router& server, ServerState& state);

}  // namespace orvane
