// Reordering siblings (request 210, a drag of a group onto another among
// its siblings).
#pragma once

#include <string>

#include "dispatch/request_context.h"

namespace orvane::org {

// Moves `move_sec_cd` to the place (SEC_SEQ) of `target_sec_cd` among the
// children of `joi_sec`: the groups between the two places shift by one,
// the SEC_SEQ values themselves stay where they are, every renumbered row
// is marked "2". Two groups with the same order answer "OK" and change
// nothing; an unknown moved or target group answers "ERROR:DBFETCH", one
// that is not a child of `joi_sec` (on the work tables: a live one)
// "ERROR:SQLEXEC" + "ChangeGroupDisp" CR LF "not a child of <joi_sec>:
// <code>", with nothing changed.
void ChangeGroupDisp(RequestContext& ctx, const std::string& move_sec_cd, const std::string& target_sec_cd,
                     const std::string& joi_sec);

}  // namespace orvane::org
