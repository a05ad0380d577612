// Checks of a text's shape that the field rules and the data check share:
// UTF-8 well-formedness and calendar dates in the yyyymmdd form. Pure and
// thread-safe.
#pragma once

#include <string_view>

namespace orvane::text {

// True when `s` is well-formed UTF-8 (no overlong forms, no surrogates,
// nothing above U+10FFFF).
bool IsValidUtf8(std::string_view s);

// True when `ymd` is eight digits naming a real day of the Gregorian
// calendar (year 0001 on).
bool IsCalendarDate(std::string_view ymd);

}  // namespace orvane::text
