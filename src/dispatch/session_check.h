// The login check that every changing operation makes before it touches
// the database.
#pragma once

#include <string>

#include "base/status.h"
#include "dispatch/request_context.h"

namespace orvane {

// Succeeds when the session holds a user ("PUB_USR_ID" not empty); fails
// (code 1, no trail) otherwise. The cookie values are handed in but not
// compared: the session alone decides. When LOCAL_DB_DSN cannot be read it
// writes "ERROR:READINFOFILE_SV_FOLDER" and fails with the configuration
// file's message as the trail.
Status Com_funChkSession(RequestContext& ctx, const std::string& user_id, const std::string& password);

}  // namespace orvane
