// The fold that search compares in: hiragana and katakana (full- and
// half-width) as hiragana, full-width ASCII and the ideographic space as
// ASCII, letters in lower case. A query and a stored value folded alike
// match whatever way either was typed. Pure and thread-safe.
#pragma once

#include <string>
#include <string_view>

namespace orvane::text {

// `s` folded; bytes that are not valid UTF-8 are kept as they are.
std::string SearchFold(std::string_view s);

}  // namespace orvane::text
