// One checked reading of a decimal whole number, for every place that turns
// stored or sent text into a number: the whole text must be the number,
// within the caller's range, or there is no number at all. Garbage never
// becomes 0.
#pragma once

#include <optional>
#include <string_view>

namespace orvane {

// What a text may hold around its digits.
struct NumberForm {
  bool blanks_around = false;  // leading and trailing blanks are dropped first
  bool plus_sign = false;      // a leading '+' is allowed
  bool minus_sign = true;      // a leading '-' is allowed
};

// `text` as a whole number in [min, max]; none for an empty text, anything
// but digits after the allowed sign, or a value out of range.
std::optional<long long> ParseWholeNumber(std::string_view text, long long min, long long max, NumberForm form = {});

}  // namespace orvane
