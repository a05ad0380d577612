#include "dispatch/optional_fields.h"

#include "base/text.h"

namespace orvane {

bool BushoSet(const RequestContext& ctx) { return ctx.Field(kBushoSet) == "1"; }

bool HasUpdStamp(const RequestContext& ctx) { return !ctx.Field(kUpdStamp).empty(); }

std::string JoinedStamp(std::string_view upd_ymd, std::string_view upd_hms) {
  return text::Trim(upd_ymd) + text::Trim(upd_hms);
}

bool StampChanged(const RequestContext& ctx, std::string_view upd_ymd, std::string_view upd_hms) {
  return HasUpdStamp(ctx) && ctx.Field(kUpdStamp) != JoinedStamp(upd_ymd, upd_hms);
}

}  // namespace orvane
