// The character set the HTTP edge speaks. Inside, all text is UTF-8; with
// Shift_JIS (Windows code page 932, iconv's "CP932") the edge reads request
// fields and cookie values as CP932 and sends text answers in it, for pages
// written for a host that spoke Shift_JIS. Conversions use glibc's iconv.
#pragma once

#include <string>
#include <string_view>

#include "base/cp932.h"
#include "dispatch/request_context.h"
#include "server/http_message.h"

namespace orvane {

enum class HttpCharset { kUtf8, kShiftJis };

// "UTF-8" or "Shift_JIS" (ASCII case folded, "-" and "_" alike); false for
// anything else.
bool ParseHttpCharset(std::string_view name, HttpCharset& out);

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
