// Access at the HTTP edge: who may call /orvane and the drawn tree. The
// system's own checks inside each request stay as they are; this rule only
// decides whether a request over HTTP runs at all.
#pragma once

#include <string>

#include "dispatch/session.h"
#include "requests/request_table.h"

namespace orvane {

struct AccessRule {
  // The menu-rights column whose own number marks an administrator: MENU50
  // holding "50". Read once at login.
  std::string admin_column = "MENU50";
  // Queries need no login (for pages that never log in); changes still need
  // an administrator.
  bool anonymous_reads = false;
};

// Whether `session` may run `route` (nullptr: no such request code, which
// reads nothing) over HTTP.
bool MayCall(const AccessRule& rule, const Session& session, const RequestRoute* route);

// Whether `session` (nullptr: no login) may read the drawn tree over HTTP.
bool MayReadTree(const AccessRule& rule, const Session* session);

}  // namespace orvane
