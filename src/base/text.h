// Text rules shared by every subsystem.
//
// Lengths and "first/last N characters" count code points of UTF-8 text, not
// bytes. "Without regard to case" folds ASCII letters only, as the pages'
// original host did. All functions are pure and thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvane::text {

inline constexpr std::string_view kCrLf = "\r\n";

std::string ToUpperAscii(std::string_view s);
bool EqualsIgnoreCase(std::string_view a, std::string_view b);
// Position of `needle` in `haystack` at or after `from`, ASCII case folded;
// npos when absent.
size_t FindIgnoreCase(std::string_view haystack, std::string_view needle, size_t from = 0);
bool ContainsIgnoreCase(std::string_view haystack, std::string_view needle);
bool StartsWithIgnoreCase(std::string_view s, std::string_view prefix);

// Blanks (U+0020) only, like the host's Trim.
std::string Trim(std::string_view s);
std::string RemoveAll(std::string_view s, char c);
std::string ReplaceAll(std::string_view s, std::string_view from, std::string_view to);
// Split keeps empty items: Split("a,,b", ",") is {"a", "", "b"}; Split("", ",") is {""}.
std::vector<std::string> Split(std::string_view s, std::string_view sep);
std::string Join(const std::vector<std::string>& items, std::string_view sep);

size_t CodePointLength(std::string_view s);
// First / last n code points.
std::string Left(std::string_view s, size_t n);
std::string Right(std::string_view s, size_t n);

// Parses a whole decimal text into a signed 16-bit value; false when it is
// empty, holds anything else than an optional sign and digits, or is out of range.
bool ParseInt16(std::string_view s, short& out);

}  // namespace orvane::text
