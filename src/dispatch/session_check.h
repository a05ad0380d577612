// The login check that every changing operation makes before it touches
// the database.
#pragma once

#include <string>

#include "dispatch/request_context.h"

namespace orvane {

// `result` is 0 when the session holds a user ("PUB_USR_ID" not empty) and
// non-zero otherwise. The cookie values are handed in but, as in the
// original, not compared: the session alone decides. Writes
// "ERROR:READINFOFILE_SV_FOLDER" when LOCAL_DB_DSN cannot be read.
void Com_funChkSession(RequestContext& ctx, const std::string& user_id, const std::string& password,
                       std::string& error, int& result);

}  // namespace orvane
