// The read-only JSON endpoints under /api/ that the pages use besides the
// request codes: the field rules, the search box and a row's update stamp.
// Each is behind the same administrator check as /orvane.
#pragma once

#include "server/router.h"
#include "server/server_state.h"

namespace orvane {

void RegisterApiRoutes(Router& server, ServerState& state);

}  // namespace orvane
