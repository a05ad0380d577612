// Taking a user out of the mailing list of a section, when the user leaves
// the section or is deleted. Runs on the caller's open connection.
#pragma once

#include <string>
#include <string_view>

#include "base/status.h"
#include "data/db.h"
#include "dispatch/request_context.h"

namespace orvane::accounts {

// Looks up the section's IMAIL_LIST in the section table of the current
// table set and removes "<userID>@<ML_SERVER>" from that list. A section
// without a list succeeds with nothing done. ML_SERVER missing:
// "ERROR:READINFOFILE_SV_FOLDER" on the response and a failure with an
// empty trail. Other failures: code -1, the trail "funDelMailList" CR LF
// and the inner routine's trail (the database routine's cause kept).
Status funDelMailList(RequestContext& ctx, data::Connection& conn, std::string_view sectionCode,
                      std::string_view userID);

}  // namespace orvane::accounts
