#include "server/history_routes.h"

#include <chrono>
#include <nlohmann/json.hpp>

#include "data/db.h"
#include "history/history_read.h"
#include "history/history_words.h"

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

json Error(std::string_view code, std::string_view message = {}) {
  json j = {{"error", code}};
  if (!message.empty()) j["message"] = message;
  return j;
}

json Image(const std::string& kept) {
  if (kept.empty()) return nullptr;
  json j = json::parse(kept, nullptr, false);
  return j.is_discarded() ? json(nullptr) : j;
}

json EntryJson(const history::Entry& e) {
  json changes = json::array();
  for (const history::RowChange& c : e.changes)
    changes.push_back({{"table", c.table},
                       {"action", c.action},
                       {"key", c.key},
                       {"before", Image(c.before)},
                       {"after", Image(c.after)}});
  return {{"id", e.id},
          {"time", e.time},
          {"user", e.user},
          {"user_name", e.user_name},
          {"address", e.address},
          {"code", e.code},
          {"operation", history::OperationName(e.code)},
          {"answer", e.answer},
          {"summary", history::Summary(e)},
          {"changes", std::move(changes)},
          {"change_count", std::max<long>(e.change_count, static_cast<long>(e.changes.size()))},
          {"undoable", history::Undoable(e)},
          {"undone_by", e.undone_by ? json(e.undone_by) : json(nullptr)}};
}

void HandleHistory(ServerState& state, const HttpRequest& req, HttpResponse& res) {
  const auto start = Steady::now();
  std::shared_ptr<Session> session = state.sessions->Find(ParseCookieHeader(req.Header("Cookie")).Get(kSessionCookie));
  if (!session) session = std::make_shared<Session>();
  AccessDecision access = MayCall(state.access, state.config, *session, nullptr);
  if (!access.allowed)
    return Reply(state, req, res, start, access.failure.ok() ? 401 : 503, Error("ERROR:SESSIONCHECK"),
                 access.failure.cause());
  NamedValues query;
  ParseUrlEncoded(req.Query(), query);
  history::Filter filter;
  if (Status s = history::ParseFilter(query, filter); !s.ok())
    return Reply(state, req, res, start, 400, Error("ERROR:INVALIDVALUE", s.trail()));
  std::string dsn;
  std::vector<history::Entry> entries;
  long next = 0;
  Status s = state.config.ComIniFileLoad("LOCAL_DB_DSN", dsn);
  data::Connection conn;
  if (s.ok()) s = data::Com_funDbOpen(dsn, "", "", conn);
  if (s.ok()) {
    s = history::ReadHistory(conn, filter, entries, next);
    data::Com_funDbClose(conn).IgnoreError();  // read only
  }
  if (!s.ok()) return Reply(state, req, res, start, 500, Error("ERROR:DBSELECT"), s.cause());
  json list = json::array();
  for (const history::Entry& e : entries) list.push_back(EntryJson(e));
  Reply(state, req, res, start, 200, {{"entries", std::move(list)}, {"next", next ? json(next) : json(nullptr)}});
}

}  // namespace

void RegisterHistoryRoutes(Router& server, ServerState& state) {
  server.Get("/api/history", [&state](const HttpRequest& req, HttpResponse& res) { HandleHistory(state, req, res); });
}

}  // namespace orvane
