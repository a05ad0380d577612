#include "base/whole_number.h"

#include <gtest/gtest.h>

#include <climits>
#include <optional>

#include "base/text.h"

namespace orvane {
namespace {

constexpr std::optional<long long> kNone = std::nullopt;

TEST(WholeNumber, TheWholeTextIsTheNumberOrThereIsNone) {
  const NumberForm plain, blanks{.blanks_around = true}, plus{.plus_sign = true}, unsigned_{.minus_sign = false};
  struct Case {
    const char* text;
    long long min, max;
    NumberForm form;
    std::optional<long long> want;
  } cases[] = {
      {"42", 0, 100, plain, 42},
      {"007", 0, 100, plain, 7},
      {"", 0, 100, plain, kNone},
      {"12abc", 0, 100, plain, kNone},  // atol would have read 12
      {"abc", 0, 100, plain, kNone},    // atol would have read 0
      {"1.5", 0, 100, plain, kNone},
      {" 42", 0, 100, plain, kNone},
      {" 42 ", 0, 100, blanks, 42},
      {"   ", 0, 100, blanks, kNone},
      {"4 2", 0, 100, blanks, kNone},
      {"-5", -10, 10, plain, -5},
      {"-5", -10, 10, unsigned_, kNone},
      {"-0", 0, 10, unsigned_, kNone},
      {"+5", -10, 10, plain, kNone},
      {"+5", -10, 10, plus, 5},
      {"+", -10, 10, plus, kNone},
      {"++5", -10, 10, plus, kNone},
      {"+-5", -10, 10, plus, kNone},
      {"101", 0, 100, plain, kNone},
      {"-11", -10, 10, plain, kNone},
      {"9223372036854775807", 0, LLONG_MAX, plain, LLONG_MAX},
      {"9223372036854775808", 0, LLONG_MAX, plain, kNone},
      {"-9223372036854775809", LLONG_MIN, 0, plain, kNone},
  };
  for (const Case& c : cases)
    EXPECT_EQ(ParseWholeNumber(c.text, c.min, c.max, c.form), c.want) << "\"" << c.text << "\"";
}

// The page positions of a request: the field's whole text, a sign allowed.
TEST(WholeNumber, SixteenBitFieldsTakeASignAndNothingOutOfRange) {
  struct Case {
    const char* text;
    bool ok;
    short want;
  } cases[] = {{"-32768", true, -32768}, {"+32767", true, 32767}, {"32768", false, 0},
               {"-32769", false, 0},     {"", false, 0},          {"1e3", false, 0},
               {"1x", false, 0},         {"1.5", false, 0},       {"-", false, 0}};
  for (const Case& c : cases) {
    short out = 0;
    EXPECT_EQ(text::ParseInt16(c.text, out), c.ok) << c.text;
    if (c.ok) {
      EXPECT_EQ(out, c.want) << c.text;
    }
  }
}

}  // namespace
}  // namespace orvane
