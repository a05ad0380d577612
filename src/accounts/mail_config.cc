#include "accounts/mail_config.h"

#include <charconv>

#include "base/text.h"

namespace orvane::accounts {
namespace {

bool ParseWhole(std::string_view s, long& out) {
  if (!s.empty() && s.front() == '+') s.remove_prefix(1);
  auto [end, ec] = std::from_chars(s.data(), s.data() + s.size(), out);
  return !s.empty() && ec == std::errc() && end == s.data() + s.size();
}

}  // namespace

std::chrono::milliseconds ExeProxyTimeout(const ConfigFile& config) {
  long seconds = 0;
  if (!ParseWhole(config.Get("ML_EXEPROXY_TIMEOUT"), seconds) || seconds < 1 || seconds > 3600)
    seconds = kDefaultExeProxyTimeoutSeconds;
  return std::chrono::seconds(seconds);
}

bool ToolsRunLocally(const ConfigFile& config) { return text::EqualsIgnoreCase(config.Get("ML_ISLOCAL"), "True"); }

bool IsTruthValue(std::string_view value) {
  std::string v = text::Trim(value);
  if (text::EqualsIgnoreCase(v, "True")) return true;
  long number = 0;
  return ParseWhole(v, number) && number != 0;
}

bool ReadMailServerKeys(RequestContext& ctx, std::vector<std::string>& keys) {
  constexpr std::string_view kNoConfig = "ERROR:READINFOFILE_SV_FOLDER";
  return ReadRequiredKeys(ctx,
                          {{"ML_FOLDER", kNoConfig},
                           {"ML_ISLOCAL", kNoConfig},
                           {"ML_SERVERIP", kNoConfig},
                           {"ML_EXEPROXY_PORT", kNoConfig}},
                          keys);
}

}  // namespace orvane::accounts
