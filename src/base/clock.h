// The one seam to the wall clock. Servers use SystemClock; tests pass a
// FixedClock so that dates and update stamps are known in advance.
#pragma once

#include <atomic>
#include <string>

namespace orvane {

struct LocalTime {
  int year = 0, month = 0, day = 0;
  int hour = 0, minute = 0, second = 0;
};

// Thread-safe: Now() may be called from any request thread.
class Clock {
 public:
  virtual ~Clock() = default;
  virtual LocalTime Now() const = 0;
};

class SystemClock final : public Clock {
 public:
  LocalTime Now() const override;
  static const SystemClock& Instance();
};

class FixedClock final : public Clock {
 public:
  explicit FixedClock(LocalTime t) : t_(t) {}
  LocalTime Now() const override { return t_; }
  void Set(LocalTime t) { t_ = t; }

 private:
  LocalTime t_;
};

// Today as yyyymmdd and now as hhmmss, each part zero-padded.
void Com_subGetDate(const Clock& clock, std::string& date, std::string& time);

}  // namespace orvane
