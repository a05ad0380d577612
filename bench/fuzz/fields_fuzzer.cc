// The edge parsers every request passes through before any operation sees
// it: the URL-encoded fields (query string and form body), the Cookie
// header, a cookie's own "k1=v1&k2=v2" values and the lookup of repeated
// names. Besides not crashing, each parse must keep its own promises.
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "base/clock.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "dispatch/request_context.h"
#include "dispatch/request_fields.h"
#include "dispatch/session.h"

namespace {

using orvane::NamedValues;

void Expect(bool holds, const char* what, std::string_view input) {
  if (holds) return;
  std::fprintf(stderr, "fields_fuzzer: %s\ninput: %.*s\n", what, static_cast<int>(input.size()), input.data());
  std::abort();
}

std::string Upper(std::string s) {
  for (char& c : s)
    if (c >= 'a' && c <= 'z') c = static_cast<char>(c - 'a' + 'A');
  return s;
}

// The cookie parser trims blanks, nothing else.
bool IsBlank(char c) { return c == ' '; }

// Repeated names: the first value wins, whatever the case of the name.
void CheckLookups(const NamedValues& values, std::string_view input) {
  for (size_t i = 0; i < values.items().size(); ++i) {
    const auto& [name, value] = values.items()[i];
    Expect(values.Has(name) && values.Has(Upper(name)), "a parsed name is not found again", input);
    std::string first;
    for (size_t j = 0; j <= i; ++j) {
      if (Upper(values.items()[j].first) == Upper(name)) {
        first = values.items()[j].second;
        break;
      }
    }
    Expect(values.Get(name) == first && values.Get(Upper(name)) == first, "a repeated name does not give its first value",
           input);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  std::string_view input(reinterpret_cast<const char*>(data), size);

  std::string decoded = orvane::PercentDecode(input);
  Expect(decoded.size() <= input.size(), "decoding made the text longer", input);

  NamedValues fields;
  orvane::ParseUrlEncoded(input, fields);
  size_t pairs = 1;
  for (char c : input) pairs += c == '&';
  Expect(fields.items().size() <= pairs, "more fields than '&'-separated pairs", input);
  CheckLookups(fields, input);
  // Parsing appends: a second parse doubles the list and changes no lookup.
  orvane::ParseUrlEncoded(input, fields);
  CheckLookups(fields, input);

  NamedValues cookies = orvane::ParseCookieHeader(input);
  for (const auto& [name, value] : cookies.items()) {
    Expect(name.find(';') == std::string::npos && value.find(';') == std::string::npos, "a cookie holds a ';'", input);
    Expect(name.empty() || (!IsBlank(name.front()) && !IsBlank(name.back())), "a cookie name is untrimmed", input);
    Expect(value.empty() || (!IsBlank(value.front()) && !IsBlank(value.back())), "a cookie value is untrimmed", input);
  }
  CheckLookups(cookies, input);

  // The pages' "pubCookie" carries sub-keys; every one must read back as
  // ParseUrlEncoded gives it.
  static orvane::ConfigFile config("/nonexistent/ORVANE.ini");
  static orvane::ApplicationStore app;
  orvane::Session session;
  orvane::RequestContext ctx(config, session, app, orvane::SystemClock::Instance());
  ctx.cookies = cookies;
  for (const auto& [name, value] : cookies.items()) {
    NamedValues sub;
    orvane::ParseUrlEncoded(cookies.Get(name), sub);
    for (const auto& item : sub.items())
      Expect(ctx.CookieValue(name, item.first) == sub.Get(item.first), "a cookie's sub-key reads back otherwise", input);
  }
  return 0;
}
