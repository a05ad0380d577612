#include "server/api_routes.h"

#include <chrono>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "base/text_checks.h"
#include "data/db.h"
#include "dispatch/optional_fields.h"
#include "requests/field_rules_doc.h"
#include "server/api_answer.h"

namespace orvane {
namespace {

using Steady = std::chrono::steady_clock;
using json = nlohmann::json;

// The search box's limits: 20 of each kind, a query of at most 100 characters.
constexpr size_t kSearchLimit = 20;
constexpr size_t kQueryMax = 100;

NamedValues QueryOf(const HttpRequest& req) {
  NamedValues fields;
  ParseUrlEncoded(req.Query(), fields);
  return fields;
}

void HandleSearch(ServerState& state, const HttpRequest& req, HttpResponse& res) {
  const auto start = Steady::now();
  if (!ApiAdministrator(state, req, res, start)) return;
  const std::string q = QueryOf(req).Get("q");
  if (!text::IsValidUtf8(q) || text::CodePointLength(q) > kQueryMax)
    return ApiReply(state, req, res, start, 400,
                    ApiError("ERROR:INVALIDVALUE", "q: must be valid UTF-8 of at most 100 characters"));
  SearchResult found;
  if (Status s = state.search.Search(state.config, q, kSearchLimit, found); !s.ok())
    return ApiReply(state, req, res, start, 500, ApiError("ERROR:DBSELECT"), {.failure = s.cause()});
  json users = json::array(), groups = json::array();
  for (const SearchUser& u : found.users)
    users.push_back({{"id", u.id}, {"name", u.name}, {"reading", u.reading}, {"mail", u.mail}});
  for (const SearchGroup& g : found.groups)
    groups.push_back({{"code", g.code}, {"name", g.name}, {"display", g.display}});
  ApiReply(state, req, res, start, 200, {{"users", std::move(users)}, {"groups", std::move(groups)}});
}

// GET /api/stamp?group=CODE or ?user=ID (DBFlg=1: the work tables): the
// row's update stamp as 202 and 205 compare it; "" when there is no row.
void HandleStamp(ServerState& state, const HttpRequest& req, HttpResponse& res) {
  const auto start = Steady::now();
  if (!ApiAdministrator(state, req, res, start)) return;
  const NamedValues query = QueryOf(req);
  const bool group = query.Has("group"), work = query.Get("DBFlg") == "1";
  if (group == query.Has("user"))
    return ApiReply(state, req, res, start, 400, ApiError("ERROR:INVALIDVALUE", "give one of group and user"));
  data::Sql sql;
  sql << "select UPD_YMD ,UPD_HMS from ";
  if (group) {
    sql << data::Table(work ? "T_SECTION_WORK" : "T_SECTION") << " where SEC_CD = " << data::Quoted(query.Get("group"));
  } else {
    sql << data::Table(work ? "T_USER_WORK" : "T_USER") << " where USER_ID = " << data::Quoted(query.Get("user"));
  }
  std::string dsn, stamp;
  Status s = state.config.ComIniFileLoad("LOCAL_DB_DSN", dsn);
  data::Connection conn;
  if (s.ok()) s = data::Com_funDbOpen(dsn, "", "", conn);
  if (s.ok()) {
    s = data::SelectRows(conn, sql, {"UPD_YMD", "UPD_HMS"}, [&stamp](const std::vector<std::string>& v) {
      stamp = JoinedStamp(v[0], v[1]);
      return false;
    });
    data::Com_funDbClose(conn).IgnoreError();  // read only
  }
  if (!s.ok()) return ApiReply(state, req, res, start, 500, ApiError("ERROR:DBSELECT"), {.failure = s.cause()});
  ApiReply(state, req, res, start, 200, {{"stamp", stamp}});
}

}  // namespace

void RegisterApiRoutes(Router& server, ServerState& state) {
  // The validation step's rules, generated from the request table: the
  // pages check as one types with the rules the server applies.
  server.Get("/api/field-rules", [&state](const HttpRequest& req, HttpResponse& res) {
    const auto start = Steady::now();
    if (!ApiAdministrator(state, req, res, start)) return;
    static const json rules = FieldRulesDocument();
    ApiReply(state, req, res, start, 200, rules, {.cache = "no-cache"});
  });
  server.Get("/api/search", [&state](const HttpRequest& req, HttpResponse& res) { HandleSearch(state, req, res); });
  server.Get("/api/stamp", [&state](const HttpRequest& req, HttpResponse& res) { HandleStamp(state, req, res); });
}

}  // namespace orvane
