// Moving a group with its whole subtree under another parent (request 212,
// a drag onto another group on the group screen).
#pragma once

#include <string>

#include "dispatch/request_context.h"

namespace orvane::org {

// The moved group gets `new_joi_sec` as parent and the next order under
// it; it and every descendant get their SEC_TREE and TREE_NM rewritten, in
// one transaction, after every new path is computed. A move onto the group
// itself or into its own subtree, of an unknown group or under an unknown
// parent answers "ERROR:ILLEGALTREE" and changes nothing. Writes "OK" or
// one "ERROR:" answer.
void ChangeGroupTree(RequestContext& ctx, const std::string& move_sec_cd, const std::string& new_joi_sec);

}  // namespace orvane::org
