#include "server/history_routes.h"

#include <chrono>
#include <nlohmann/json.hpp>

#include "data/db.h"
#include "history/history_read.h"
#include "history/history_words.h"
#include "server/api_answer.h"

namespace orvane {
namespace {

using Steady = std::chrono::steady_clock;
using json = nlohmann::json;

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
  if (!ApiAdministrator(state, req, res, start)) return;
  NamedValues query;
  ParseUrlEncoded(req.Query(), query);
  history::Filter filter;
  if (Status s = history::ParseFilter(query, filter); !s.ok())
    return ApiReply(state, req, res, start, 400, ApiError("ERROR:INVALIDVALUE", s.trail()));
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
  if (!s.ok()) return ApiReply(state, req, res, start, 500, ApiError("ERROR:DBSELECT"), {.failure = s.cause()});
  json list = json::array();
  for (const history::Entry& e : entries) list.push_back(EntryJson(e));
  ApiReply(state, req, res, start, 200, {{"entries", std::move(list)}, {"next", next ? json(next) : json(nullptr)}});
}

}  // namespace

void RegisterHistoryRoutes(Router& server, ServerState& state) {
  server.Get("/api/history", [&state](const HttpRequest& req, HttpResponse& res) { HandleHistory(state, req, res); });
}

}  // namespace orvane
