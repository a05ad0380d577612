// Reading the configuration keys an operation cannot do without. A key that
// is missing or empty writes the operation's own answer code
// ("ERROR:READINFOFILE_...") to the response and stops the operation.
#pragma once

#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "dispatch/request_context.h"

namespace orvane {

struct RequiredKey {
  std::string_view key;
  std::string_view error;  // written to the response when the key fails
};

// Reads `keys` in order into `values`. The first key that fails writes its
// error code and stops: false.
bool ReadRequiredKeys(RequestContext& ctx, std::initializer_list<RequiredKey> keys, std::vector<std::string>& values);

// One key: its value, or false after writing `error`.
bool ReadRequiredKey(RequestContext& ctx, std::string_view key, std::string_view error, std::string& value);

}  // namespace orvane
