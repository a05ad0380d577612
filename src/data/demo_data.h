// A small demo organisation for `orvane init-db --demo`, in the live tables
// and their _WORK twins: the top section "0000" with two levels below it,
// six users in several kana rows (admin, an administrator, among them),
// primary and concurrent memberships (one ended), three posts and the
// users' menu rights; one section is deleted in the work copy only.
// Inserted only when the top section is missing, so running it again
// changes nothing.
#pragma once

#include <string>

#include "base/clock.h"
#include "data/db.h"

namespace orvane::data {

// Logins of the demo users (id / password): admin / admin, yamada / yamada.
Status InsertDemoData(Connection& conn, const Clock& clock);

}  // namespace orvane::data
