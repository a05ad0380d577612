#include "base/clock.h"

#include <ctime>

#include "base/text.h"

namespace orvane {

LocalTime SystemClock::Now() const {
  std::time_t now = std::time(nullptr);
  std::tm tm{};
  localtime_r(&now, &tm);
  return {tm.tm_year + 1900, tm.tm_mon + 1, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec};
}

const SystemClock& SystemClock::Instance() {
  static const SystemClock clock;
  return clock;
}

namespace {
std::string Pad2(int n) { return text::Right("00" + std::to_string(n), 2); }
}  // namespace

void Com_subGetDate(const Clock& clock, std::string& date, std::string& time) {
  // One snapshot instead of six separate reads: the parts can no longer
  // straddle a midnight.
  LocalTime t = clock.Now();
  date = std::to_string(t.year) + Pad2(t.month) + Pad2(t.day);
  time = Pad2(t.hour) + Pad2(t.minute) + Pad2(t.second);
}

}  // namespace orvane
