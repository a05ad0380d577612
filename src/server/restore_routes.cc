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
#include "server/api_answer.h"

namespace orvane {
namespace {

using Steady = std::chrono::steady_clock;
using json = nlohmann::json;

// A restore or an undo: the origin check, the administrator, the form
// body, then `run` on a request context of the session.
template <typename Run>
void HandleChange(ServerState& state, const HttpRequest& req, HttpResponse& res, std::string_view bad_body, Run run) {
  const auto start = Steady::now();
  std::shared_ptr<Session> session = ApiAdministrator(state, req, res, start, true);
  if (!session) return;
  NamedValues body;
  if (text::StartsWithIgnoreCase(req.Header("Content-Type"), "application/x-www-form-urlencoded"))
    ParseUrlEncoded(req.body, body);
  RequestContext ctx(state.config, *session, state.app, state.clock);
  ctx.client_address = req.remote_address;
  ctx.proxy_exchanges = &state.metrics;
  std::optional<restore::Outcome> out = run(body, ctx);
  if (!out)
    return ApiReply(state, req, res, start, 400,
                    {{"ok", false}, {"error", "ERROR:INVALIDVALUE"}, {"message", bad_body}});
  state.search.Invalidate();  // names may have come back
  if (out->ok) return ApiReply(state, req, res, start, 200, {{"ok", true}, {"entry", out->entry}});
  ApiReply(state, req, res, start, 200, {{"ok", false}, {"error", out->error}, {"message", out->message}},
           {.failure = ctx.failure_cause()});
}

void HandleDeleted(ServerState& state, const HttpRequest& req, HttpResponse& res) {
  const auto start = Steady::now();
  if (!ApiAdministrator(state, req, res, start)) return;
  NamedValues query;
  ParseUrlEncoded(req.Query(), query);
  const std::string kind = query.Get("kind");
  if (kind != "user" && kind != "group")
    return ApiReply(state, req, res, start, 400, {{"error", "ERROR:INVALIDVALUE"}, {"message", "kind: user or group"}});
  std::vector<restore::Deleted> list;
  Status s = restore::ReadDeleted(state.config, state.clock, kind, list);
  if (!s.ok()) return ApiReply(state, req, res, start, 500, {{"error", "ERROR:DBSELECT"}}, {.failure = s.cause()});
  json out = json::array();
  for (const restore::Deleted& d : list)
    out.push_back({{"kind", kind},
                   {"key", d.key},
                   {"name", d.name},
                   {"time", d.time},
                   {"entry", d.entry},
                   {"restorable", d.restorable}});
  ApiReply(state, req, res, start, 200, {{"deleted", std::move(out)}});
}

}  // namespace

void RegisterRestoreRoutes(Router& server, ServerState& state) {
  server.Post("/api/history/restore", [&state](const HttpRequest& req, HttpResponse& res) {
    HandleChange(state, req, res, "kind: user or group, key: its id or code",
                 [](const NamedValues& body, RequestContext& ctx) -> std::optional<restore::Outcome> {
                   const std::string kind = body.Get("kind"), key = body.Get("key");
                   if (key.empty()) return std::nullopt;
                   if (kind == "user") return restore::RestoreUser(ctx, key);
                   if (kind == "group") return restore::RestoreGroup(ctx, key);
                   return std::nullopt;
                 });
  });
  server.Post("/api/history/undo", [&state](const HttpRequest& req, HttpResponse& res) {
    HandleChange(state, req, res, "entry: a history entry's number",
                 [](const NamedValues& body, RequestContext& ctx) -> std::optional<restore::Outcome> {
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
