// Request "001": configuration values and menu flags that the pages need
// before anything else.
#pragma once

#include "dispatch/request_context.h"

namespace orvane {

void GetServerInformation(RequestContext& ctx);

}  // namespace orvane
