// Reordering the members of a section (request 211, a drag of one member
// onto another in the member list).
#pragma once

#include <string>

#include "dispatch/request_context.h"

namespace orvane::members {

// Moves `moved_user_id` to stand immediately before `target_user_id` in
// section `sec_cd` by turning the USER_SEQ values of the members between
// them: no position is made or lost. Equal positions answer "OK" and change
// nothing. Writes "OK" or one "ERROR:" answer, the trail behind the code.
void ChangeUserDisp(RequestContext& ctx, const std::string& target_user_id, const std::string& moved_user_id,
                    const std::string& sec_cd);

}  // namespace orvane::members
