#include "known_findings.h"

namespace orvane::bench {

// An entry reads what it needs on its own connection to `dsn` and returns
// its number when `fields` would hit it.
int KnownFinding(const std::string& /*dsn*/, const NamedValues& /*fields*/) { return 0; }

}  // namespace orvane::bench
