// The deleted users or groups of the retention period, newest first, for
// the History screen's "deleted users" and "deleted groups" lists.
#pragma once

#include <string>
#include <vector>

#include "base/clock.h"
#include "base/status.h"
#include "dispatch/config.h"

namespace orvane::restore {

struct Deleted {
  std::string key, name, time;
  long entry = 0;
  // The latest deletion of a key not back since (neither restored nor
  // taken again): what a restore would bring back.
  bool restorable = false;
};

// `kind`: "user" (206) or "group" (203).
Status ReadDeleted(const ConfigFile& config, const Clock& clock, const std::string& kind, std::vector<Deleted>& out);

}  // namespace orvane::restore
