// Access at the HTTP edge: who may call /orvane and the drawn tree, and
// from which pages a change may come. The system's own checks inside each
// request stay as they are; these rules only decide whether a request over
// HTTP runs at all. They know nothing of HTTP types: the routes hand in
// header values, the session and the request's route.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "dispatch/config.h"
#include "dispatch/session.h"
#include "requests/request_table.h"

namespace orvane {

struct AccessRule {
  // The menu-rights column whose own number marks an administrator: MENU50
  // holding "50". Read from the database on every request.
  std::string admin_column = "MENU50";
  // Queries need no login (for pages that never log in); changes still need
  // an administrator.
  bool anonymous_reads = false;
  // Origins ("https://pages.example:8443") whose pages may send changes
  // besides our own (serve --trusted-origin).
  std::vector<std::string> trusted_origins = {};
};

// What the edge decided. `failure` is set when the database could not say
// (the request is refused then: no right is assumed).
struct AccessDecision {
  bool allowed = false;
  Status failure = Status::Ok();
};

// Whether `session` may run `route` (nullptr: no such request code, which
// reads nothing) over HTTP. Asks the database whether the session's user
// still exists and still holds the right, unless the rule lets anybody run
// the request.
AccessDecision MayCall(const AccessRule& rule, const ConfigFile& config, const Session& session,
                       const RequestRoute* route);

// Whether `session` (nullptr: no login) may read the drawn tree over HTTP.
AccessDecision MayReadTree(const AccessRule& rule, const ConfigFile& config, const Session* session);

// The user whose other sessions end after a request: a password change
// (205 answered "OK" with a new password). Empty: nobody's.
std::string UserWhosePasswordChanged(std::string_view request_code, std::string_view answer, const std::string& user_id,
                                     const std::string& new_password);

}  // namespace orvane
