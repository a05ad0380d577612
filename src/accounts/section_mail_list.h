// Taking a user out of the mailing list of a section, when the user leaves
// the section or is deleted, and the sections whose lists a deleted user
// leaves. Runs on the caller's open connection. Membership (members/) and
// user registration call down into it; it reads no other subsystem.
#pragma once

#include <string>
#include <string_view>
#include <vector>

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

// The codes of every section `user_id` belongs to (any period, deleted or
// not), on the caller's open connection. A failure has code -1 and
// "Get_g_cd" CR LF in front of the data layer's trail. `sec_codes` is
// replaced by the codes when there are any and left as it was otherwise.
Status Get_g_cd(const RequestContext& ctx, data::Connection& conn, const std::string& user_id,
                std::vector<std::string>& sec_codes);
data::Sql SectionCodesSql(const RequestContext& ctx, const std::string& user_id);

}  // namespace orvane::accounts
