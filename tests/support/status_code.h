// Tests read a routine's Status as the system's two outputs: the code it
// returns (0, 1 or -1) and the error text it sets on failure (left as it
// was on success).
#pragma once

#include <string>

#include "base/status.h"

namespace orvane::testing {

inline int Code(const Status& status, std::string& error) {
  if (!status.ok()) error = status.trail();
  return status.code();
}

}  // namespace orvane::testing
