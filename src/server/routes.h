// All HTTP routes of `orvane serve`, registered in one place.
#pragma once

#include "server/router.h"
#include "server/server_state.h"

namespace orvane {

void RegisterRoutes(Router& server, ServerState& state);

}  // namespace orvane
