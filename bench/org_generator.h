// A large generated organisation for the benchmarks: sections in an 8-ary
// tree (five or six levels at 20,000 sections), users spread over every
// kana row, a primary membership per user and concurrent ones on top, with
// periods of which some have ended. Deterministic for a given seed.
#pragma once

#include <string>

#include "data/db.h"

namespace orvane::bench {

struct OrgSize {
  int sections = 20000;
  int users = 100000;
  int memberships = 150000;  // at least `users`: one primary each
  int big_section_members = 500;
};

// What the drivers need to know about the generated data.
struct OrgFacts {
  std::string big_section;  // holds exactly big_section_members primary members
  std::string sample_user;  // a user in the middle of the id range
};

// The facts of an organisation of `size`, generated or not.
OrgFacts FactsOf(const OrgSize& size);

// Inserts the organisation into the live tables (created and empty) on the
// open connection, in one transaction. Returns 0, or 1 with `error`.
int GenerateOrganisation(data::Connection& conn, const OrgSize& size, unsigned seed, OrgFacts& facts,
                         std::string& error);

}  // namespace orvane::bench
