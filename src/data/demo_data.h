// A minimal demo organisation for `orvane init-db --demo`: the top section
// "0000", two users who belong to it (one an administrator), a post, and
// the users' menu rights, in the live tables and their _WORK twins.
// Inserted only when the top section is missing, so running it again
// changes nothing.
#pragma once

#include <string>

#include "data/db.h"
#include "dispatch/clock.h"

namespace orvane::data {

// Logins of the demo users (id / password): admin / admin, yamada / yamada.
int InsertDemoData(Connection& conn, const Clock& clock, std::string& error);

}  // namespace orvane::data
