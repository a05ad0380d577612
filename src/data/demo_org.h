// The larger part of the demo (`orvane init-db --demo --large-demo`): twelve
// divisions under the demo's top section, each with four departments of
// five sections (300 groups), and 3,000 users with Japanese names and
// readings, each a primary member of one section. Generated the same way
// every time, behind the small demo's rows (section codes from 0100, user
// ids u0001 to u3000), in one transaction; added only when section 0100 is
// missing. These users have no password: only the small demo's log in.
#pragma once

#include "base/clock.h"
#include "data/db.h"

namespace orvane::data {

inline constexpr int kLargeDemoUsers = 3000;
inline constexpr int kLargeDemoSections = 300;

Status InsertLargeDemoData(Connection& conn, const Clock& clock);

}  // namespace orvane::data
