// The character set the HTTP edge speaks. Inside, all text is UTF-8; with
// Shift_JIS (Windows code page 932, iconv's "CP932") the edge reads request
// fields and cookie values as CP932 and sends text answers in it, for pages
// written for a host that spoke Shift_JIS. Conversions use glibc's iconv.
#pragma once

#include <iconv.h>

#include <string>
#include <string_view>

#include "dispatch/request_context.h"
#include "server/http_message.h"

namespace orvane {

enum class HttpCharset { kUtf8, kShiftJis };

// "UTF-8" or "Shift_JIS" (ASCII case folded, "-" and "_" alike); false for
// anything else.
bool ParseHttpCharset(std::string_view name, HttpCharset& out);

// One iconv conversion descriptor, closed with its owner. Not thread-safe:
// one per thread or per call.
class Iconv {
 public:
  Iconv(const char* to, const char* from);
  ~Iconv();
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;

  bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  // Converts `in` whole, appending to `out`. On a sequence the source set
  // does not define (or one cut short at the end), or a character the
  // target set has no form for: false, `out` holding what came before and
  // `used` how many bytes of `in` were converted.
  bool Convert(std::string_view in, std::string& out, size_t& used);

 private:
  iconv_t cd_;
};

// CP932 bytes to UTF-8; false when `in` is not valid CP932.
bool Cp932ToUtf8(std::string_view in, std::string& out);
// UTF-8 to CP932. A character CP932 has no form for, and a byte that is not
// UTF-8, is sent as "?".
std::string Utf8ToCp932(std::string_view in);

// With Shift_JIS: every field (name and value, already percent-decoded) and
// every cookie value of `ctx` (its "k=v&k2=v2" items percent-decoded, kept
// percent-encoded) become UTF-8. When any of them is not valid CP932,
// nothing is changed, the answer is "ERROR:CHARSET" with HTTP 400, and the
// result is false: the request must not run.
bool DecodeRequestCharset(HttpCharset charset, RequestContext& ctx);

// Puts `body` into `res` as its text answer: as it is with UTF-8; in CP932
// as "text/plain; charset=Shift_JIS" with Shift_JIS.
void SetTextAnswer(HttpResponse& res, const std::string& body, HttpCharset charset);

}  // namespace orvane
