// The data check behind `orvane check-data`: reads the stored values that
// pages get back in lists and reports each one that today's field rules
// (dispatch/field_rules.h) would refuse, so that an administrator can fix
// it through the pages. Read-only: it never changes a row.
#pragma once

#include <string>
#include <vector>

#include "base/status.h"
#include "data/db.h"

namespace orvane {

struct StoredValueFinding {
  std::string table;   // "T_USER", "T_SECTION_WORK", ...
  std::string key;     // "USER_ID=smith", "SEC_CD=0004 USER_ID=yamada"
  std::string column;  // "NAME_KJ"
  std::string shown;   // the value, quoted and escaped so that it is safe to print
  std::string rule;    // the reason, as the validation step words it
};

// Checks the live tables and their work twins (that exist) on `conn`.
// A failed select fails the check with its trail.
Status CheckStoredValues(data::Connection& conn, std::vector<StoredValueFinding>& findings);

// `value` between double quotes, with '"', '\\', control characters and
// bytes that are not UTF-8 written as escapes, cut after 60 characters
// ("..." and the full length follow).
std::string ShowValueSafely(const std::string& value);

}  // namespace orvane
