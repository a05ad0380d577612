// Named request values (query string, then form body) and cookies, looked up
// without regard to ASCII case; a missing name reads as the empty text.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane {

class NamedValues {
 public:
  NamedValues() = default;
  void Add(std::string name, std::string value) { items_.emplace_back(std::move(name), std::move(value)); }
  // The first value given under `name`.
  std::string Get(std::string_view name) const;
  bool Has(std::string_view name) const;
  const std::vector<std::pair<std::string, std::string>>& items() const { return items_; }

 private:
  std::vector<std::pair<std::string, std::string>> items_;
};

std::string PercentDecode(std::string_view s);  // "+" becomes a blank
// Parses "a=1&b=2" (percent-decoded) and appends to `out`.
void ParseUrlEncoded(std::string_view s, NamedValues& out);
// Parses a Cookie header "a=1; b=2" (values kept as sent).
NamedValues ParseCookieHeader(std::string_view header);

}  // namespace orvane
