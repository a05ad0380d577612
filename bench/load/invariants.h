// The organisation's invariants, read straight from the tables of one data
// source (live or the _WORK twins): what must hold after any sequence of
// answered requests, however many administrators ran them at once.
//
// - sections: every JOI_SEC names an existing section or "9999", no parent
//   chain loops, SEC_TREE is the parent's SEC_TREE + "/" + SEC_CD (the code
//   alone at a root);
// - names: TREE_NM is the parent's path plus the section's name as it
//   enters a path ("/ " + name under the top section "0000", the name alone
//   at a root);
// - sibling order: no two sections of one parent share SEC_SEQ, no two
//   members of one section share USER_SEQ;
// - memberships: no row names a missing user or section;
// - users: every user has its MENU_USER and T_PASSGEN rows (ids in
//   `exempt_users` need no T_PASSGEN row: the demo data has none);
// - keys: no duplicate SEC_CD, USER_ID, (SEC_CD, USER_ID), MENU_USER id.
#pragma once

#include <set>
#include <string>
#include <vector>

#include "base/status.h"

namespace orvane::bench {

struct Violation {
  std::string kind;    // sections, names, order, memberships, users, keys
  std::string detail;  // which rows, with their values
};

struct InvariantReport {
  long sections = 0, users = 0, memberships = 0;
  std::vector<Violation> violations;
  bool Holds() const { return violations.empty(); }
  // "holds (N sections, ...)" or one line per violation.
  std::string Text() const;
};

// Reads the tables named with `suffix` ("" or "_WORK") on data source `dsn`
// (its own connection) and checks them. A failing read is a failed status.
Status CheckInvariants(const std::string& dsn, const std::string& suffix, const std::set<std::string>& exempt_users,
                       InvariantReport& report);

}  // namespace orvane::bench
