#include "server/restore_routes.h"

#include <chrono>
#include <limits>
#include <nlohmann/json.hpp>
#include <optional>

#include "base/text.h"
#include "base/whole_number.h"
#include "restore/deleted_list.h"
#include "restore/restore_deleted.h"
#include "restore/undo.h"
#include "server/access.h"
#include "server/origin_check.h"

namespace orvane {
namespace {

using Steady = std::chrono::steady_clock;
using json = nlohmann::json;

void Reply(ServerState& state, const HttpRequest& req, HttpResponse& res, Steady::time_point start, int status,
           const json& body, Cause failure = {}) {
  res.status = status;
  res.SetHeader("Cache-Control", "no-store");
  res.SetHeader("X-Content-Type-Options", "nosniff");
  res.SetContent(body.dump(-1, ' ', false, json::error_handler_t::replace), "application/json; charset=utf-8");
  const long long micros = std::chrono::duration_cast<std::chrono::microseconds>(Steady::now() - start).count();
  state.access_log.Write(
      {req.remote_address, req.method, req.path, "", status, micros, res.body, false, std::move(failure)});
}

// The administrator's session, or null when the request was answered.
std::shared_ptr<Session> Administrator(ServerState& state, const HttpRequest& req, HttpResponse& res,
                                       Steady::time_point start) {
  std::shared_ptr<Session> session = state.sessions->Find(ParseCookieHeader(req.Header("Cookie")).Get(kSessionCookie));
  if (!session) session = std::make_shared<Session>();
  AccessDecision access = MayCall(state.access, state.config, *session, nullptr);
  if (access.allowed) return session;
  Reply(state, req, res, start, access.failure.ok() ? 401 : 503, {{"error", "ERROR:SESSIONCHECK"}},
        access.failure.cause());
  return nullptr;
}

// A restore or an undo: the origin check, the administrator, the form
// body, then `run` on a request context of the session.
template <typename Run>
void HandleChange(ServerState& state, const HttpRequest& req, HttpResponse& res, Run run) {
  const auto start = Steady::now();
  if (IsCrossSiteChange(req.Header("Sec-Fetch-Site"), req.Header("Origin"), req.Header("Host"), state.secure_cookie,
                        state.access.trusted_origins))
    return Reply(state, req, res, start, 403, {{"error", "ERROR:CROSSORIGIN"}});
  std::shared_ptr<Session> session = Administrator(state, req, res, start);
  if (!session) return;
  NamedValues body;
  if (text::StartsWithIgnoreCase(req.Header("Content-Type"), "application/x-www-form-urlencoded"))
    ParseUrlEncoded(req.body, body);
  RequestContext ctx(state.config, *session, state.app, state.clock);
  ctx.client_address = req.remote_address;
  ctx.proxy_exchanges = &state.metrics;
  std::optional<restore::Outcome> out = run(body, ctx);
  if (!out)
    return Reply(
        state, req, res, start, 400,
        {{"ok", false}, {"error", "ERROR:INVALIDVALUE"}, {"message", "kind: user or group, key: its id or code"}});
  state.search.Invalidate();  // names may have come back
  if (out->ok) return Reply(state, req, res, start, 200, {{"ok", true}, {"entry", out->entry}});
  Reply(state, req, res, start, 200, {{"ok", false}, {"error", out->error}, {"message", out->message}},
        ctx.failure_cause());
}

void HandleDeleted(ServerState& state, const HttpRequest& req, HttpResponse& res) {
  const auto start = Steady::now();
  if (!Administrator(state, req, res, start)) return;
  NamedValues query;
  ParseUrlEncoded(req.Query(), query);
  const std::string kind = query.Get("kind");
  if (kind != "user" && kind != "group")
    return Reply(state, req, res, start, 400, {{"error", "ERROR:INVALIDVALUE"}, {"message", "kind: user or group"}});
  std::vector<restore::Deleted> list;
  Status s = restore::ReadDeleted(state.config, state.clock, kind, list);
  if (!s.ok()) return Reply(state, req, res, start, 500, {{"error", "ERROR:DBSELECT"}}, s.cause());
  json out = json::array();
  for (const restore::Deleted& d : list)
    out.push_back({{"kind", kind},
                   {"key", d.key},
                   {"name", d.name},
                   {"time", d.time},
                   {"entry", d.entry},
                   {"restorable", d.restorable}});
  Reply(state, req, res, start, 200, {{"deleted", std::move(out)}});
}

}  // namespace

void RegisterRestoreRoutes(Router& server, ServerState& state) {
  server.Post("/api/history/restore", [&state](const HttpRequest& req, HttpResponse& res) {
    HandleChange(state, req, res, [](const NamedValues& body, RequestContext& ctx) -> std::optional<restore::Outcome> {
      const std::string kind = body.Get("kind"), key = body.Get("key");
      if (key.empty()) return std::nullopt;
      if (kind == "user") return restore::RestoreUser(ctx, key);
      if (kind == "group") return restore::RestoreGroup(ctx, key);
      return std::nullopt;
    });
  });
  server.Post("/api/history/undo", [&state](const HttpRequest& req, HttpResponse& res) {
    HandleChange(state, req, res, [](const NamedValues& body, RequestContext& ctx) -> std::optional<restore::Outcome> {
      std::optional<long long> entry =
          ParseWholeNumber(body.Get("entry"), 1, std::numeric_limits<long>::max(), {.minus_sign = false});
      if (!entry) return std::nullopt;
      return restore::Undo(ctx, static_cast<long>(*entry));
    });
  });
  server.Get("/api/history/deleted",
             [&state](const HttpRequest& req, HttpResponse& res) { HandleDeleted(state, req, res); });
}

}  // namespace orvane
