#include "base/search_fold.h"

#include <cstdint>
#include <string_view>

namespace orvane::text {
namespace {

// Half-width katakana U+FF66..U+FF9D as full-width katakana.
constexpr char16_t kHalfKana[] =
    u"ヲァィゥェォャュョッーアイウエオカキクケコサシスセソタチツテトナニヌネノハヒフヘホマミムメモヤユヨラリルレロワン";

void Append(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else if (c < 0x10000) {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xF0 | (c >> 18));
    out += static_cast<char>(0x80 | ((c >> 12) & 0x3F));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

// The code point at `i` and its length in bytes; 0 length when invalid.
char32_t Decode(std::string_view s, size_t i, size_t& length) {
  const auto b = [&](size_t k) { return static_cast<unsigned char>(s[i + k]); };
  const unsigned char c = b(0);
  length = 0;
  if (c < 0x80) {
    length = 1;
    return c;
  }
  size_t n = c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : c >= 0xC0 ? 2 : 0;
  if (n == 0 || c >= 0xF8 || i + n > s.size()) return 0;
  char32_t cp = c & (0x3F >> (n - 1));
  for (size_t k = 1; k < n; ++k) {
    if ((b(k) & 0xC0) != 0x80) return 0;
    cp = (cp << 6) | (b(k) & 0x3F);
  }
  length = n;
  return cp;
}

// Kana that take a voiced mark (its code point + 1) and a semi-voiced one (+ 2).
bool Voiceable(char32_t hira) {
  return std::u32string_view(U"かきくけこさしすせそたちつてとはひふへほ").find(hira) != std::u32string_view::npos;
}
bool SemiVoiceable(char32_t hira) { return std::u32string_view(U"はひふへほ").find(hira) != std::u32string_view::npos; }

char32_t Fold(char32_t c) {
  if (c >= 'A' && c <= 'Z') return c + 32;
  if (c >= 0xFF01 && c <= 0xFF5E) return Fold(c - 0xFEE0);  // full-width ASCII
  if (c == 0x3000) return ' ';
  if (c >= 0xFF66 && c <= 0xFF9D) c = kHalfKana[c - 0xFF66];
  if (c >= 0x30A1 && c <= 0x30F6) return c - 0x60;  // katakana to hiragana
  return c;
}

}  // namespace

std::string SearchFold(std::string_view s) {
  std::string out;
  out.reserve(s.size());
  char32_t last = 0;  // the last folded code point, for a half-width voiced mark
  size_t last_at = 0;
  for (size_t i = 0; i < s.size();) {
    size_t length = 0;
    char32_t c = Decode(s, i, length);
    if (length == 0) {
      out += s[i++];
      last = 0;
      continue;
    }
    i += length;
    // A half-width (or combining) voiced mark joins the kana before it.
    const bool voiced = c == 0xFF9E || c == 0x3099, semi = c == 0xFF9F || c == 0x309A;
    if ((voiced || semi) && last != 0) {
      char32_t joined = 0;
      if (voiced && last == U'う')
        joined = U'ゔ';
      else if (voiced && Voiceable(last))
        joined = last + 1;
      else if (semi && SemiVoiceable(last))
        joined = last + 2;
      if (joined != 0) {
        out.resize(last_at);
        Append(out, joined);
        last = 0;
        continue;
      }
    }
    c = Fold(c);
    last_at = out.size();
    last = c;
    Append(out, c);
  }
  return out;
}

}  // namespace orvane::text
