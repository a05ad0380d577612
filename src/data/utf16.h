// UTF-8 <-> UTF-16 conversion for the ODBC wide-character calls. Done here
// rather than through iconv or the driver manager so that text never depends
// on the process locale. Invalid input becomes U+FFFD. Pure and thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace orvane::data {

std::u16string ToUtf16(std::string_view utf8);
std::string ToUtf8(std::u16string_view utf16);

}  // namespace orvane::data
