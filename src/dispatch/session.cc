#include "dispatch/session.h"

#include "base/text.h"

namespace orvane {

std::string Session::Get(std::string_view name) const {
  std::lock_guard lock(mu_);
  auto it = values_.find(text::ToUpperAscii(name));
  return it == values_.end() ? std::string() : it->second;
}

void Session::Set(std::string_view name, std::string value) {
  std::lock_guard lock(mu_);
  values_[text::ToUpperAscii(name)] = std::move(value);
}

void Session::Clear() {
  std::lock_guard lock(mu_);
  values_.clear();
}

std::map<std::string, std::string> Session::Values() const {
  std::lock_guard lock(mu_);
  return values_;
}

}  // namespace orvane
