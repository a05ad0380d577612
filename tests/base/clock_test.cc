#include "base/clock.h"

#include <gtest/gtest.h>

namespace orvane {
namespace {

TEST(ComSubGetDate, PadsEveryPart) {
  for (auto [t, stamp] : {std::pair{LocalTime{2024, 3, 7, 9, 5, 3}, "20240307 090503"},
                          {LocalTime{2024, 12, 31, 23, 59, 59}, "20241231 235959"}}) {
    std::string date, time;
    Com_subGetDate(FixedClock(t), date, time);
    EXPECT_EQ(date + " " + time, stamp);
  }
}

}  // namespace
}  // namespace orvane
