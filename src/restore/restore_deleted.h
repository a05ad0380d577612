// Restoring a deleted user (206) or group (203) from the row images its
// delete kept, within the retention period (HISTORY_RETENTION_DAYS).
//
// A user comes back with every row the delete removed (user row, menu
// rights, password generations, memberships with kind, period, post and
// order, the groupware rows) and without a password; with ML_MODE "2" its
// mail account and alias are made again as the registration makes them,
// and it rejoins the lists of its sections. A group comes back under its
// parent at its place, with its mailing list, its memberships whose users
// still exist and its groupware rows; the drawn tree follows.
//
// Refused, changing nothing, when the id (or the user's mail address, or
// the group's department code) is taken since, a group the user belonged
// to or the group's parent is gone, or there is no such deletion within
// the period. Each restore, done or refused, is a history entry
// ("restore-user", "restore-group") whose UNDOES names the deletion.
#pragma once

#include <string>

#include "dispatch/request_context.h"
#include "restore/outcome.h"

namespace orvane::restore {

// `ctx`: a fresh request context whose session holds the administrator
// (PUB_USR_ID) and whose client_address says where the call came from.
Outcome RestoreUser(RequestContext& ctx, const std::string& user_id);
Outcome RestoreGroup(RequestContext& ctx, const std::string& sec_cd);

}  // namespace orvane::restore
