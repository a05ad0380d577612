#include <gtest/gtest.h>

#include "base/clock.h"
#include "base/text.h"

namespace orvane {
namespace {

TEST(ComSubGetDate, PadsEveryPart) {
  for (auto [t, stamp] : {std::pair{LocalTime{2024, 3, 7, 9, 5, 3}, "20240307 090503"},
                          {LocalTime{2024, 12, 31, 23, 59, 59}, "20241231 235959"},
                          {LocalTime{2025, 1, 1, 0, 0, 0}, "20250101 000000"}}) {
    std::string date, time;
    Com_subGetDate(FixedClock(t), date, time);
    EXPECT_EQ(date + " " + time, stamp);
  }
}

TEST(TextRules, CountCodePointsAndFoldAsciiOnly) {
  EXPECT_EQ(text::CodePointLength("ａｂｃ"), 3u);
  EXPECT_EQ(text::Right("0000" + std::string("5"), 4), "0005");
  EXPECT_EQ(text::Left("グループ", 2), "グル");
  EXPECT_EQ(text::Right("グループ", 3), "ループ");
  EXPECT_TRUE(text::EqualsIgnoreCase("Name", "nAME"));
  EXPECT_FALSE(text::EqualsIgnoreCase("ａ", "Ａ"));  // full-width letters are not folded
  EXPECT_EQ(text::FindIgnoreCase("xx ok: yes", "OK:"), 3u);
}

}  // namespace
}  // namespace orvane
