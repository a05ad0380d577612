// The configuration values that choose how the mail server is reached,
// read from ORVANE.ini on every call like every other key.
#pragma once

#include <chrono>
#include <initializer_list>
#include <string>
#include <string_view>
#include <vector>

#include "dispatch/config.h"
#include "dispatch/request_context.h"
#include "dispatch/required_keys.h"

namespace orvane::accounts {

inline constexpr int kDefaultExeProxyTimeoutSeconds = 10;

// ML_EXEPROXY_TIMEOUT (seconds, optional): the connect, read and write
// time-out of the exe proxy and the run time-out of a local tool. Missing,
// not a whole number or not in 1..3600 gives the default of 10 seconds.
std::chrono::milliseconds ExeProxyTimeout(const ConfigFile& config);

// The account commands run locally when ML_ISLOCAL is "True", compared
// without regard to case; any other value (or none) means the exe proxy.
bool ToolsRunLocally(const ConfigFile& config);

// The list operations read ML_ISLOCAL as a truth value: "True" without
// regard to case or a non-zero whole number means direct file access.
bool IsTruthValue(std::string_view value);

// The keys that reach the mail server, read when ML_MODE is "2": ML_FOLDER,
// ML_ISLOCAL, ML_SERVERIP and ML_EXEPROXY_PORT into `keys` in that order,
// a missing one answering "ERROR:READINFOFILE_SV_FOLDER". False once answered.
bool ReadMailServerKeys(RequestContext& ctx, std::vector<std::string>& keys);

}  // namespace orvane::accounts
