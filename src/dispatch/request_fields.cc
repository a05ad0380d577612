#include "dispatch/request_fields.h"

#include "base/text.h"

namespace orvane {

std::string NamedValues::Get(std::string_view name) const {
  for (const auto& [n, v] : items_)
    if (text::EqualsIgnoreCase(n, name)) return v;
  return {};
}

bool NamedValues::Has(std::string_view name) const {
  for (const auto& item : items_)
    if (text::EqualsIgnoreCase(item.first, name)) return true;
  return false;
}

namespace {
int HexValue(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}
}  // namespace

std::string PercentDecode(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  for (size_t i = 0; i < s.size(); ++i) {
    char c = s[i];
    if (c == '+') {
      out.push_back(' ');
    } else if (c == '%' && i + 2 < s.size() && HexValue(s[i + 1]) >= 0 && HexValue(s[i + 2]) >= 0) {
      out.push_back(static_cast<char>(HexValue(s[i + 1]) * 16 + HexValue(s[i + 2])));
      i += 2;
    } else {
      out.push_back(c);  // a stray "%" stays as it is
    }
  }
  return out;
}

void ParseUrlEncoded(std::string_view s, NamedValues& out) {
  if (s.empty()) return;
  for (const std::string& pair : text::Split(s, "&")) {
    if (pair.empty()) continue;
    size_t eq = pair.find('=');
    if (eq == std::string::npos)
      out.Add(PercentDecode(pair), "");
    else
      out.Add(PercentDecode(pair.substr(0, eq)), PercentDecode(pair.substr(eq + 1)));
  }
}

NamedValues ParseCookieHeader(std::string_view header) {
  NamedValues out;
  for (std::string part : text::Split(header, ";")) {
    part = text::Trim(part);
    if (part.empty()) continue;
    size_t eq = part.find('=');
    if (eq == std::string::npos)
      out.Add(part, "");
    else
      out.Add(text::Trim(part.substr(0, eq)), text::Trim(part.substr(eq + 1)));
  }
  return out;
}

}  // namespace orvane
