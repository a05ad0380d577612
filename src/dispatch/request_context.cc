#include "dispatch/request_context.h"

#include "base/text.h"

namespace orvane {

std::string RequestContext::CookieValue(std::string_view cookie, std::string_view key) const {
  NamedValues sub;
  ParseUrlEncoded(cookies.Get(cookie), sub);
  return sub.Get(key);
}

bool RequestContext::WorkTables() const { return text::EqualsIgnoreCase(DBFlg, "1"); }

}  // namespace orvane
