#include "server/api_answer.h"

#include <string>
#include <utility>

#include "server/access.h"
#include "server/origin_check.h"

namespace orvane {

using json = nlohmann::json;

void ApiReply(ServerState& state, const HttpRequest& req, HttpResponse& res, ApiClock::time_point start, int status,
              const json& body, ApiReplyOptions options) {
  res.status = status;
  res.SetHeader("Cache-Control", options.cache);
  res.SetHeader("X-Session-Timeout", std::to_string(state.sessions->IdleTimeout().count()));
  res.SetHeader("X-Content-Type-Options", "nosniff");
  res.SetContent(body.dump(-1, ' ', false, json::error_handler_t::replace), "application/json; charset=utf-8");
  const long long micros = std::chrono::duration_cast<std::chrono::microseconds>(ApiClock::now() - start).count();
  state.access_log.Write({req.remote_address, req.method, req.path, "", status, micros,
                          options.log_body || status != 200 ? res.body : std::string(), false,
                          std::move(options.failure)});
}

json ApiError(std::string_view code, std::string_view message) {
  json j = {{"error", code}};
  if (!message.empty()) j["message"] = message;
  return j;
}

std::shared_ptr<Session> ApiAdministrator(ServerState& state, const HttpRequest& req, HttpResponse& res,
                                          ApiClock::time_point start, bool change) {
  if (change && IsCrossSiteChange(req.Header("Sec-Fetch-Site"), req.Header("Origin"), req.Header("Host"),
                                  state.secure_cookie, state.access.trusted_origins)) {
    ApiReply(state, req, res, start, 403, ApiError("ERROR:CROSSORIGIN"));
    return nullptr;
  }
  std::shared_ptr<Session> session = state.sessions->Find(ParseCookieHeader(req.Header("Cookie")).Get(kSessionCookie));
  if (!session) session = std::make_shared<Session>();
  AccessDecision access = MayCall(state.access, state.config, *session, nullptr);
  if (access.allowed) return session;
  ApiReply(state, req, res, start, access.failure.ok() ? 401 : 503, ApiError("ERROR:SESSIONCHECK"),
           {.failure = access.failure.cause()});
  return nullptr;
}

}  // namespace orvane
