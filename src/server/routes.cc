#include "server/routes.h"

#include <httplib.h>

#include <chrono>

#include "dispatch/text.h"
#include "dispatch/web_class.h"

namespace orvane {
namespace {

constexpr char kTextPlain[] = "text/plain; charset=utf-8";

std::string QueryOf(const httplib::Request& req) {
  size_t q = req.target.find('?');
  return q == std::string::npos ? std::string() : req.target.substr(q + 1);
}

bool IsFormBody(const httplib::Request& req) {
  return text::StartsWithIgnoreCase(req.get_header_value("Content-Type"), "application/x-www-form-urlencoded");
}

// Request fields: the query string first, then a form body.
NamedValues FieldsOf(const httplib::Request& req) {
  NamedValues fields;
  ParseUrlEncoded(QueryOf(req), fields);
  if (req.method == "POST" && IsFormBody(req)) ParseUrlEncoded(req.body, fields);
  return fields;
}

std::string SessionIdOf(const NamedValues& cookies) { return cookies.Get(kSessionCookie); }

[[maybe_unused]] std::string SessionCookie(const std::string& id, bool expire = false) {
  std::string c = std::string(kSessionCookie) + "=" + id + "; Path=/; HttpOnly; SameSite=Strict";
  if (expire) c += "; Max-Age=0";
  return c;
}

void Answer(httplib::Response& res, int status, const std::string& body) {
  res.status = status;
  res.set_content(body, kTextPlain);
}

class Timer {
 public:
  long long Micros() const {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

void Log(ServerState& state, const httplib::Request& req, const Timer& timer, int status, std::string_view answer,
         std::string_view code = {}, bool secret = false) {
  state.access_log.Write({req.remote_addr, req.method, req.path, std::string(code), status, timer.Micros(), answer,
                          secret});
}

void HandleOrvane(ServerState& state, const httplib::Request& req, httplib::Response& res) {
  Timer timer;
  NamedValues cookies = ParseCookieHeader(req.get_header_value("Cookie"));
  std::shared_ptr<Session> session = state.sessions->Find(SessionIdOf(cookies));
  if (!session) session = std::make_shared<Session>();  // anonymous: reads only, kept nowhere

  RequestContext ctx(state.config, *session, state.app, state.clock);
  ctx.fields = FieldsOf(req);
  ctx.cookies = std::move(cookies);
  const RequestRoute* route = RunRequest(ctx);
  Answer(res, ctx.http_status, ctx.response());
  Log(state, req, timer, ctx.http_status, ctx.response(), ctx.Field("ReqNo"), route && route->answer_is_secret);
}

}  // namespace

void RegisterRoutes(httplib::Server& server, ServerState& state) {
  auto orvane = [&state](const httplib::Request& req, httplib::Response& res) { HandleOrvane(state, req, res); };
  server.Get("/orvane", orvane);
  server.Post("/orvane", orvane);

  server.Get("/healthz", [&state](const httplib::Request& req, httplib::Response& res) {
    Timer timer;
    Answer(res, 200, "OK");
    Log(state, req, timer, 200, "OK");
  });

  server.set_error_handler([&state](const httplib::Request& req, httplib::Response& res) {
    Timer timer;
    if (res.status == 404) res.set_content("Not Found", kTextPlain);
    Log(state, req, timer, res.status, res.body);
  });
}

}  // namespace orvane
