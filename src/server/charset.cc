#include "server/charset.h"

#include <cerrno>

#include "base/text.h"

namespace orvane {
namespace {

constexpr char kUtf8Text[] = "text/plain; charset=utf-8";
constexpr char kShiftJisText[] = "text/plain; charset=Shift_JIS";

bool IsAscii(std::string_view s) {
  for (char c : s)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

// CP932 keeps every ASCII byte as it is, so ASCII text needs no converter.
bool Decode(Iconv& cv, std::string_view in, std::string& out) {
  out.clear();
  if (IsAscii(in)) {
    out.assign(in);
    return true;
  }
  size_t used = 0;
  return cv.ok() && cv.Convert(in, out, used);
}

// Unreserved characters stay, every other byte is %XX.
std::string PercentEncode(std::string_view s) {
  static constexpr char kHex[] = "0123456789ABCDEF";
  std::string out;
  for (char c : s) {
    auto b = static_cast<unsigned char>(c);
    if ((b >= 'A' && b <= 'Z') || (b >= 'a' && b <= 'z') || (b >= '0' && b <= '9') || c == '-' || c == '.' ||
        c == '_' || c == '~') {
      out.push_back(c);
    } else {
      out.append({'%', kHex[b >> 4], kHex[b & 15]});
    }
  }
  return out;
}

// A cookie value as the pages send it, "k=v&k2=v2" percent-encoded: each
// name and value decoded, converted and encoded again, so that
// RequestContext::CookieValue reads UTF-8. Plain ASCII is left as sent.
bool DecodeCookieValue(Iconv& cv, std::string_view value, std::string& out) {
  if (IsAscii(value) && value.find('%') == std::string_view::npos) {
    out.assign(value);
    return true;
  }
  out.clear();
  std::string name, item;
  for (const std::string& pair : text::Split(value, "&")) {
    if (pair.empty()) continue;
    size_t eq = pair.find('=');
    if (!Decode(cv, PercentDecode(std::string_view(pair).substr(0, eq)), name)) return false;
    if (!out.empty()) out.push_back('&');
    out += PercentEncode(name);
    if (eq == std::string::npos) continue;
    if (!Decode(cv, PercentDecode(std::string_view(pair).substr(eq + 1)), item)) return false;
    out.append("=").append(PercentEncode(item));
  }
  return true;
}

}  // namespace

bool ParseHttpCharset(std::string_view name, HttpCharset& out) {
  std::string folded = text::ReplaceAll(text::ToUpperAscii(name), "-", "_");
  if (folded == "UTF_8") {
    out = HttpCharset::kUtf8;
  } else if (folded == "SHIFT_JIS") {
    out = HttpCharset::kShiftJis;
  } else {
    return false;
  }
  return true;
}

bool DecodeRequestCharset(HttpCharset charset, RequestContext& ctx) {
  if (charset == HttpCharset::kUtf8) return true;
  Iconv cv("UTF-8", "CP932");
  NamedValues fields, cookies;
  std::string name, value;
  bool valid = true;
  for (const auto& [n, v] : ctx.fields.items()) {
    valid = Decode(cv, n, name) && Decode(cv, v, value);
    if (!valid) break;
    fields.Add(name, value);
  }
  for (auto it = ctx.cookies.items().begin(); valid && it != ctx.cookies.items().end(); ++it) {
    valid = Decode(cv, it->first, name) && DecodeCookieValue(cv, it->second, value);
    if (valid) cookies.Add(name, value);
  }
  if (!valid) {
    ctx.Write("ERROR:CHARSET");
    ctx.http_status = 400;
    return false;
  }
  ctx.fields = std::move(fields);
  ctx.cookies = std::move(cookies);
  return true;
}

void SetTextAnswer(HttpResponse& res, const std::string& body, HttpCharset charset) {
  if (charset == HttpCharset::kShiftJis)
    res.SetContent(Utf8ToCp932(body), kShiftJisText);
  else
    res.SetContent(body, kUtf8Text);
}

}  // namespace orvane
