// The administrator right as the database holds it now: read on every
// request over HTTP, so that revoking the right (213) or deleting the user
// (206) takes effect at once, on every instance on the database. Never
// cached: one keyed select on the live user and menu-rights tables (both
// keyed by USER_ID). Thread-safe: each call has its own pooled connection.
#pragma once

#include <string>

#include "base/status.h"
#include "data/sql.h"
#include "dispatch/config.h"

namespace orvane::members {

// select <column> from the live user row joined to its menu-rights row, by id.
data::Sql AdminRightSql(const std::string& user_id, const std::string& column);

// Whether `user_id` is still a user whose menu-rights row holds `column`'s
// own number (MENU50 holding "50"). A failure (no LOCAL_DB_DSN, no
// database, a failed select) leaves `holds` false and says why.
Status ReadAdminRight(const ConfigFile& config, const std::string& user_id, const std::string& column, bool& holds);

}  // namespace orvane::members
