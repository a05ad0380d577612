#include "dispatch/history_fields.h"

#include <nlohmann/json.hpp>
#include <set>

#include "base/text.h"

namespace orvane {

bool IsPasswordField(std::string_view name) {
  std::string upper = text::ToUpperAscii(name);
  return upper.ends_with("_PS") || upper.find("PASSW") != std::string::npos;
}

std::string HistoryFieldsJson(const NamedValues& fields) {
  nlohmann::ordered_json out = nlohmann::ordered_json::object();
  std::set<std::string> seen;
  for (const auto& [name, value] : fields.items()) {
    if (!seen.insert(text::ToUpperAscii(name)).second) continue;  // the value the request read
    out[name] = IsPasswordField(name) ? "***" : value;
  }
  // A field that is not UTF-8 is kept with the bad bytes replaced.
  return out.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace);
}

std::string HistoryTime(const std::string& ymd, const std::string& hms) {
  if (ymd.size() != 8 || hms.size() != 6) return "";
  return ymd.substr(0, 4) + "-" + ymd.substr(4, 2) + "-" + ymd.substr(6, 2) + " " + hms.substr(0, 2) + ":" +
         hms.substr(2, 2) + ":" + hms.substr(4, 2);
}

}  // namespace orvane
