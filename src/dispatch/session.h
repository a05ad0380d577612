// The values of one login session ("PUB_USR_ID", "PUB_USR_NM", ...), the
// system's Session object. Names are matched without regard to ASCII case.
// Thread-safe: two requests of one browser may run at once.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <string_view>

namespace orvane {

class Session {
 public:
  std::string Get(std::string_view name) const;  // empty when unset
  void Set(std::string_view name, std::string value);
  void Clear();

 private:
  mutable std::mutex mu_;
  std::map<std::string, std::string> values_;  // upper-cased name; guarded by mu_
};

}  // namespace orvane
