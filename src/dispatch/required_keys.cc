#include "dispatch/required_keys.h"

namespace orvane {

bool ReadRequiredKey(RequestContext& ctx, std::string_view key, std::string_view error, std::string& value) {
  bool found = ctx.config().ComIniFileLoad(key, value).ok();
  if (!found) ctx.Write(error);
  return found;
}

bool ReadRequiredKeys(RequestContext& ctx, std::initializer_list<RequiredKey> keys, std::vector<std::string>& values) {
  values.clear();
  for (const RequiredKey& k : keys) {
    std::string value;
    if (!ReadRequiredKey(ctx, k.key, k.error, value)) return false;
    values.push_back(std::move(value));
  }
  return true;
}

}  // namespace orvane
