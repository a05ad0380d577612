// What every JSON endpoint under /api/ shares: the answer with its headers
// and access-log line, the error body, and the administrator check (with
// the cross-site gate in front of a change).
#pragma once

#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <string_view>

#include "dispatch/session.h"
#include "server/http_message.h"
#include "server/server_state.h"

namespace orvane {

using ApiClock = std::chrono::steady_clock;

struct ApiReplyOptions {
  const char* cache = "no-store";  // Cache-Control
  Cause failure = {};              // the database cause, for the access log
  bool log_body = true;            // false: a 200's body (a report with passwords) stays out of the log
};

// Answers `body` as JSON and logs the request. X-Session-Timeout (seconds)
// lets the pages warn before the session ends.
void ApiReply(ServerState& state, const HttpRequest& req, HttpResponse& res, ApiClock::time_point start, int status,
              const nlohmann::json& body, ApiReplyOptions options = {});

// {"error":CODE} with "message" when one is given.
nlohmann::json ApiError(std::string_view code, std::string_view message = {});

// The administrator's session (401/503 "ERROR:SESSIONCHECK" otherwise, as
// /orvane refuses); for a `change`, another site's page is refused first
// (403 "ERROR:CROSSORIGIN"). Null once refused and answered.
std::shared_ptr<Session> ApiAdministrator(ServerState& state, const HttpRequest& req, HttpResponse& res,
                                          ApiClock::time_point start, bool change = false);

}  // namespace orvane
