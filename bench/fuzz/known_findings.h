// Requests known to break an invariant today, answered "OK" all the same.
// The request fuzzer does not send them (unless ORVANE_FUZZ_ALL=1), so
// that it keeps looking for new ones; each entry goes when the server
// refuses such a request. Found by this fuzzer and bench/load.
//
// 1. 207 of a user or into a section that does not exist (an empty
//    User_cd included) adds the membership: a row naming a missing user
//    or section.
// 2. 201 under a Group_cd that is not a section (or "9999") adds the group
//    with JOI_SEC pointing nowhere and SEC_TREE "/" + its code.
// 3. 210 of two groups that are not both children of Group_cd3 renumbers
//    them all the same: two siblings end with one SEC_SEQ.
#pragma once

#include <string>

#include "dispatch/request_fields.h"

namespace orvane::bench {

// The number of the known finding `fields` would hit on data source `dsn`,
// else 0.
int KnownFinding(const std::string& dsn, const NamedValues& fields);

}  // namespace orvane::bench
