#include "base/text.h"

#include <climits>
#include <optional>

#include "base/whole_number.h"

namespace orvane::text {
namespace {

char UpperAscii(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

bool IsContinuation(unsigned char c) { return (c & 0xC0) == 0x80; }

// Byte offset of the n-th code point (or s.size()).
size_t OffsetOfCodePoint(std::string_view s, size_t n) {
  size_t i = 0;
  while (i < s.size() && n > 0) {
    ++i;
    while (i < s.size() && IsContinuation(static_cast<unsigned char>(s[i]))) ++i;
    --n;
  }
  return i;
}

}  // namespace

std::string ToUpperAscii(std::string_view s) {
  std::string out(s);
  for (char& c : out) c = UpperAscii(c);
  return out;
}

bool EqualsIgnoreCase(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (size_t i = 0; i < a.size(); ++i)
    if (UpperAscii(a[i]) != UpperAscii(b[i])) return false;
  return true;
}

size_t FindIgnoreCase(std::string_view haystack, std::string_view needle, size_t from) {
  if (needle.size() > haystack.size()) return std::string_view::npos;
  for (size_t i = from; i + needle.size() <= haystack.size(); ++i)
    if (EqualsIgnoreCase(haystack.substr(i, needle.size()), needle)) return i;
  return std::string_view::npos;
}

bool ContainsIgnoreCase(std::string_view haystack, std::string_view needle) {
  return FindIgnoreCase(haystack, needle) != std::string_view::npos;
}

bool StartsWithIgnoreCase(std::string_view s, std::string_view prefix) {
  return s.size() >= prefix.size() && EqualsIgnoreCase(s.substr(0, prefix.size()), prefix);
}

std::string Trim(std::string_view s) {
  size_t b = s.find_first_not_of(' ');
  if (b == std::string_view::npos) return {};
  size_t e = s.find_last_not_of(' ');
  return std::string(s.substr(b, e - b + 1));
}

std::string RemoveAll(std::string_view s, char c) {
  std::string out;
  out.reserve(s.size());
  for (char ch : s)
    if (ch != c) out.push_back(ch);
  return out;
}

std::string ReplaceAll(std::string_view s, std::string_view from, std::string_view to) {
  if (from.empty()) return std::string(s);
  std::string out;
  size_t pos = 0;
  for (size_t hit; (hit = s.find(from, pos)) != std::string_view::npos; pos = hit + from.size()) {
    out.append(s.substr(pos, hit - pos));
    out.append(to);
  }
  out.append(s.substr(pos));
  return out;
}

std::vector<std::string> Split(std::string_view s, std::string_view sep) {
  std::vector<std::string> out;
  if (sep.empty()) return {std::string(s)};
  size_t pos = 0;
  for (size_t hit; (hit = s.find(sep, pos)) != std::string_view::npos; pos = hit + sep.size())
    out.emplace_back(s.substr(pos, hit - pos));
  out.emplace_back(s.substr(pos));
  return out;
}

std::string Join(const std::vector<std::string>& items, std::string_view sep) {
  std::string out;
  for (size_t i = 0; i < items.size(); ++i) {
    if (i) out.append(sep);
    out.append(items[i]);
  }
  return out;
}

size_t CodePointLength(std::string_view s) {
  size_t n = 0;
  for (char c : s)
    if (!IsContinuation(static_cast<unsigned char>(c))) ++n;
  return n;
}

std::string Left(std::string_view s, size_t n) { return std::string(s.substr(0, OffsetOfCodePoint(s, n))); }

std::string Right(std::string_view s, size_t n) {
  size_t len = CodePointLength(s);
  if (n >= len) return std::string(s);
  return std::string(s.substr(OffsetOfCodePoint(s, len - n)));
}

bool ParseInt16(std::string_view s, short& out) {
  std::optional<long long> value = ParseWholeNumber(s, SHRT_MIN, SHRT_MAX, {.plus_sign = true});
  if (!value) return false;
  out = static_cast<short>(*value);
  return true;
}

}  // namespace orvane::text
