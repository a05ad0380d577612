// All HTTP routes of `orvane serve`, registered in one place.
#pragma once

#include "server/server_state.h"

namespace httplib {
class Server;
}

namespace orvane {

void RegisterRoutes(httplib::Server& server, ServerState& state);

}  // namespace orvane
