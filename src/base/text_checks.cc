#include "base/text_checks.h"

namespace orvane::text {

bool IsValidUtf8(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    unsigned char c = static_cast<unsigned char>(s[i]);
    if (c < 0x80) {
      ++i;
      continue;
    }
    size_t extra;
    unsigned int cp;
    if (c >= 0xC2 && c <= 0xDF) {
      extra = 1;
      cp = c & 0x1F;
    } else if (c >= 0xE0 && c <= 0xEF) {
      extra = 2;
      cp = c & 0x0F;
    } else if (c >= 0xF0 && c <= 0xF4) {
      extra = 3;
      cp = c & 0x07;
    } else {
      return false;  // a continuation byte first, C0/C1, or F5 and above
    }
    if (i + extra >= s.size()) return false;  // cut short
    for (size_t k = 1; k <= extra; ++k) {
      unsigned char t = static_cast<unsigned char>(s[i + k]);
      if ((t & 0xC0) != 0x80) return false;
      cp = (cp << 6) | (t & 0x3F);
    }
    if ((extra == 2 && cp < 0x800) || (extra == 3 && (cp < 0x10000 || cp > 0x10FFFF)) || (cp >= 0xD800 && cp <= 0xDFFF))
      return false;
    i += extra + 1;
  }
  return true;
}

bool IsCalendarDate(std::string_view ymd) {
  if (ymd.size() != 8) return false;
  int parts[3] = {0, 0, 0};
  for (size_t i = 0; i < 8; ++i) {
    if (ymd[i] < '0' || ymd[i] > '9') return false;
    int& part = parts[i < 4 ? 0 : i < 6 ? 1 : 2];
    part = part * 10 + (ymd[i] - '0');
  }
  const auto [year, month, day] = parts;
  static constexpr int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  if (year < 1 || month < 1 || month > 12 || day < 1) return false;
  bool leap = (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
  return day <= kDays[month - 1] + (month == 2 && leap ? 1 : 0);
}

}  // namespace orvane::text
