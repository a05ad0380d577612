// ScopedFailure: arms one failure of the data layer's seam
// (data/failure_seam.h) and, when it goes away, disarms every armed
// failure, so nothing armed outlives the case that armed it:
//
//   ScopedFailure f(Point::kCommit, 1, "40001", "serialization failure");
//
// Arm after the case's own setup (Insert, Exec): they run statements too.
#pragma once

#include <string>
#include <utility>

#include "data/failure_seam.h"

namespace orvane::testing {

using data::seam::Point;

class ScopedFailure {
 public:
  ScopedFailure(Point point, int nth, std::string sqlstate, std::string message, long native = 0) {
    data::seam::FailAt(point, nth, std::move(sqlstate), std::move(message), native);
  }
  ~ScopedFailure() { data::seam::ClearFailures(); }
  // Arms one more, disarmed with the rest.
  void Also(Point point, int nth, std::string sqlstate, std::string message, long native = 0) {
    data::seam::FailAt(point, nth, std::move(sqlstate), std::move(message), native);
  }
  ScopedFailure(const ScopedFailure&) = delete;
  ScopedFailure& operator=(const ScopedFailure&) = delete;
};

}  // namespace orvane::testing
