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
  // Virtual: a store may hand out its own kind, carrying what it loaded.
  virtual ~Session() = default;
  std::string Get(std::string_view name) const;  // empty when unset
  void Set(std::string_view name, std::string value);
  void Clear();
  // Every value set, by upper-cased name (a store writes them out).
  std::map<std::string, std::string> Values() const;

 private:
  mutable std::mutex mu_;
  std::map<std::string, std::string> values_;  // upper-cased name; guarded by mu_
};

}  // namespace orvane
