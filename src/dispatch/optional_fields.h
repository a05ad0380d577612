// Optional request fields that newer pages send. Absent, a request answers
// and stores exactly as it always has; the request table declares their
// kinds, and the operations read them here by these names.
#pragma once

#include <string>
#include <string_view>

#include "dispatch/request_context.h"

namespace orvane {

// 202: "1" stores the BUSHO_CD sent (checked as 201 checks it); otherwise
// the change stores the department code empty, as it always has.
inline constexpr std::string_view kBushoSet = "BUSHO_Set";
// 202 and 205: the row's update stamp as the page loaded it, UPD_YMD and
// UPD_HMS joined (14 digits).
inline constexpr std::string_view kUpdStamp = "Upd_Stamp";
// The answer of a save whose row changed since the page loaded it.
inline constexpr std::string_view kStampChanged = "ERROR:TIMESTAMP";

bool BushoSet(const RequestContext& ctx);
// Whether the request carries a loaded stamp (an empty value carries none).
bool HasUpdStamp(const RequestContext& ctx);
// A row's stamp as pages see it: the two columns joined, blanks trimmed.
std::string JoinedStamp(std::string_view upd_ymd, std::string_view upd_hms);
// True when the request carries a stamp and the stored one differs.
bool StampChanged(const RequestContext& ctx, std::string_view upd_ymd, std::string_view upd_hms);

}  // namespace orvane
