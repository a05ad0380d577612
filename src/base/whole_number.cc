#include "base/whole_number.h"

#include <charconv>

#include "base/text.h"

namespace orvane {

std::optional<long long> ParseWholeNumber(std::string_view text, long long min, long long max, NumberForm form) {
  std::string trimmed;
  if (form.blanks_around) {
    trimmed = text::Trim(text);
    text = trimmed;
  }
  if (text.empty()) return std::nullopt;
  if (text.front() == '+') {
    if (!form.plus_sign) return std::nullopt;
    text.remove_prefix(1);  // from_chars reads no plus sign
    if (text.empty() || text.front() == '-' || text.front() == '+') return std::nullopt;
  } else if (text.front() == '-' && !form.minus_sign) {
    return std::nullopt;
  }
  long long value = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || value < min || value > max) return std::nullopt;
  return value;
}

}  // namespace orvane
