#include "server/routes.h"

#include <chrono>
#include <thread>

#include "base/text.h"
#include "members/login.h"
#include "org/tree_change.h"
#include "org/sec_tree.h"
#include "requests/web_class.h"
#include "server/access.h"
#include "server/api_routes.h"
#include "server/history_routes.h"
#include "server/restore_routes.h"
#include "server/charset.h"
#include "server/metrics.h"
#include "server/origin_check.h"
#include "server/static_files.h"
#include "server/transfer_routes.h"

namespace orvane {
namespace {

constexpr char kTextPlain[] = "text/plain; charset=utf-8";
// The answer of a request that the edge does not let run.
constexpr char kSessionRefused[] = "ERROR:SESSIONCHECK";
// The answer of a change sent by another site's page.
constexpr char kCrossOrigin[] = "ERROR:CROSSORIGIN";

bool IsFormBody(const HttpRequest& req) {
  return text::StartsWithIgnoreCase(req.Header("Content-Type"), "application/x-www-form-urlencoded");
}

// Request fields: the query string first, then a form body.
NamedValues FieldsOf(const HttpRequest& req) {
  NamedValues fields;
  ParseUrlEncoded(req.Query(), fields);
  if (req.method == "POST" && IsFormBody(req)) ParseUrlEncoded(req.body, fields);
  return fields;
}

std::string SessionIdOf(const NamedValues& cookies) { return cookies.Get(kSessionCookie); }

// The one gate of every changing endpoint: a browser says the request
// comes from a page of another site.
bool FromAnotherSite(const ServerState& state, const HttpRequest& req) {
  return IsCrossSiteChange(req.Header("Sec-Fetch-Site"), req.Header("Origin"),
                           req.Header("Host"), state.secure_cookie, state.access.trusted_origins);
}

// The status of a refused access: 401, or 503 when the database could not
// say whether the user still holds the right.
int RefusalStatus(const AccessDecision& d) { return d.failure.ok() ? 401 : 503; }

// What the access log says about a failed check of the edge's own (the
// right, ending sessions): the routine and the database's own words when
// it gave any, else the whole trail.
Cause CheckFailure(const Status& s) {
  if (s.ok()) return {};
  Cause cause = s.cause();
  const std::string& trail = s.trail();
  cause.message = cause.empty() ? trail : trail.substr(0, trail.find('\r')) + ": " + cause.message;
  return cause;
}

std::string SessionCookie(const ServerState& state, const std::string& id, bool expire = false) {
  std::string c = std::string(kSessionCookie) + "=" + id + "; Path=/; HttpOnly; SameSite=Strict";
  if (state.secure_cookie) c += "; Secure";
  if (expire) c += "; Max-Age=0";
  return c;
}

// No answer may be kept by a browser or a proxy: 106 carries a password,
// and every other one is stale after the next change.
void Answer(HttpResponse& res, int status, const std::string& body, HttpCharset charset = HttpCharset::kUtf8) {
  res.status = status;
  res.SetHeader("Cache-Control", "no-store");
  res.SetHeader("X-Content-Type-Options", "nosniff");  // an answer is text, never a page or a script
  SetTextAnswer(res, body, charset);
}

class Timer {
 public:
  long long Micros() const {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start_).count();
  }

 private:
  std::chrono::steady_clock::time_point start_ = std::chrono::steady_clock::now();
};

void Log(ServerState& state, const HttpRequest& req, const Timer& timer, int status, std::string_view answer,
         std::string_view code = {}, bool secret = false, Cause failure = {}) {
  state.access_log.Write({req.remote_address, req.method, req.path, std::string(code), status, timer.Micros(), answer,
                          secret, std::move(failure)});
}

// The request's last database failure with its password values blanked
// out, in case a database message quotes a value.
Cause LoggedFailure(const RequestContext& ctx) {
  Cause failure = ctx.failure_cause();
  if (failure.empty()) return failure;  // the usual case: no cookie to parse
  for (const std::string& secret : {ctx.Field("User_PS"), ctx.CookieValue("pubCookie", "cookie_Passwd")})
    if (!secret.empty()) failure.message = text::ReplaceAll(failure.message, secret, "***");
  return failure;
}

void HandleOrvane(ServerState& state, const HttpRequest& req, HttpResponse& res) {
  Timer timer;
  NamedValues cookies = ParseCookieHeader(req.Header("Cookie"));
  const std::string session_id = SessionIdOf(cookies);
  std::shared_ptr<Session> session = state.sessions->Find(session_id);
  if (!session) session = std::make_shared<Session>();  // anonymous: reads only, kept nowhere

  const ConfigFile config = ConfigFile::ForOneRequest(state.config);  // one stat for the whole request
  RequestContext ctx(config, *session, state.app, state.clock);
  ctx.fields = FieldsOf(req);
  ctx.cookies = std::move(cookies);
  ctx.client_address = req.remote_address;
  ctx.proxy_exchanges = &state.metrics;
  // Decoded first, so that the rule and the audit see the fields as the
  // request reads them.
  const bool decoded = DecodeRequestCharset(state.charset, ctx);
  const RequestRoute* route = decoded ? FindRoute(ctx.Field("ReqNo")) : nullptr;
  const bool cross_site = route && route->changes_data && FromAnotherSite(state, req);
  AccessDecision access;
  if (decoded && !cross_site) access = MayCall(state.access, config, *session, route);
  Cause failure = CheckFailure(access.failure);
  if (cross_site) {
    ctx.http_status = 403;
    ctx.Write(kCrossOrigin);
  } else if (decoded && !access.allowed) {
    ctx.http_status = RefusalStatus(access);
    ctx.Write(kSessionRefused);
  } else if (decoded) {
    RunRequest(ctx);
    if (route && route->changes_data) state.search.Changed(state.config);  // names may have changed
    // The answer stands either way; a value that could not be kept (the
    // members' loaded moment) is only missing from the next request.
    state.sessions->Keep(session_id, session).IgnoreError();
    std::string user =
        UserWhosePasswordChanged(route ? route->code : "", ctx.response(), ctx.Field("User_cd"), ctx.Field("User_PS"));
    if (Status ended = state.sessions->RemoveUserSessions(user, session_id); !ended.ok()) failure = CheckFailure(ended);
  }
  if (route && route->changes_data)  // before the answer leaves: an answered change always has its line
    state.audit_log.Write({"request", session->Get("PUB_USR_ID"), req.remote_address, std::string(route->code),
                           &ctx.fields, ctx.response()});
  Answer(res, ctx.http_status, ctx.response(), state.charset);
  state.metrics.NoteRequest(route, ctx.response(), timer.Micros());
  Log(state, req, timer, ctx.http_status, ctx.response(), ctx.Field("ReqNo"), route && route->answer_is_secret,
      failure.empty() ? LoggedFailure(ctx) : std::move(failure));
}

// POST /login with the form fields "User_cd" and "User_PS" in the body. A
// match gets a fresh session (a session id from before the login is
// dropped, so it can not be fixed in advance) and its cookie; a miss
// changes no session and counts against the id and the address (see
// LoginThrottle). Neither field is ever logged or put in a cookie.
void HandleLogin(ServerState& state, const HttpRequest& req, HttpResponse& res) {
  Timer timer;
  if (FromAnotherSite(state, req)) {
    Answer(res, 403, kCrossOrigin);
    return Log(state, req, timer, 403, kCrossOrigin);
  }
  // The body only: credentials in a URL end up in proxies' logs.
  NamedValues fields;
  if (IsFormBody(req)) ParseUrlEncoded(req.body, fields);
  const std::string user_id = fields.Get("User_cd");
  auto session = std::make_shared<Session>();
  std::string error;
  members::LoginOutcome outcome = members::LoginOutcome::kRefused;
  const LoginThrottle::Verdict throttled = state.login_throttle.Check(user_id, req.remote_address);
  if (throttled == LoginThrottle::Verdict::kAllowed) {
    outcome = members::LogIn(state.config, state.clock, {user_id, fields.Get("User_PS")}, state.access.admin_column,
                             *session, error);
    if (outcome == members::LoginOutcome::kRefused) state.login_throttle.NoteFailure(user_id, req.remote_address);
    if (outcome == members::LoginOutcome::kOk) state.login_throttle.NoteSuccess(user_id, req.remote_address);
  }
  if (outcome == members::LoginOutcome::kOk) {
    NamedValues cookies = ParseCookieHeader(req.Header("Cookie"));
    std::string old_id = SessionIdOf(cookies);
    if (!old_id.empty()) state.sessions->Remove(old_id);
    std::string id;
    std::shared_ptr<Session> fresh = state.sessions->Create(id);
    using namespace std::string_view_literals;
    for (std::string_view name : {"PUB_USR_ID"sv, "PUB_USR_PW"sv, "PUB_USR_NM"sv, "PUB_MAIL"sv, "PUB_SEC_CD"sv,
                                  "PUB_SEC_NM"sv, "PUB_DSP_NM"sv, "PUB_SEC_TREE"sv, members::kAdminRight})
      fresh->Set(name, session->Get(name));
    if (Status kept = state.sessions->Keep(id, fresh); !kept.ok()) {
      // No cookie for a session no instance could find.
      std::string answer = "ERROR:SESSIONSTORE";
      Answer(res, 200, answer);
      Cause failure = kept.cause();
      if (std::string password = fields.Get("User_PS"); !password.empty())
        failure.message = text::ReplaceAll(failure.message, password, "***");
      return Log(state, req, timer, 200, answer, {}, false, std::move(failure));
    }
    res.SetHeader("Set-Cookie", SessionCookie(state, id));
  }
  // Only the code: a failed lookup's error text renders the statement, and
  // with it the password.
  std::string answer = members::LoginAnswer(outcome);
  const char* event = outcome == members::LoginOutcome::kOk           ? "login"
                      : throttled != LoginThrottle::Verdict::kAllowed ? "login-throttled"
                                                                      : "login-failed";
  state.audit_log.Write({event, user_id, req.remote_address, "", nullptr, answer, LoginThrottle::Name(throttled)});
  Answer(res, 200, answer);
  Log(state, req, timer, 200, answer);
}

// POST /logout: ends the session named by the cookie (if any) and expires
// the cookie.
void HandleLogout(ServerState& state, const HttpRequest& req, HttpResponse& res) {
  Timer timer;
  if (FromAnotherSite(state, req)) {
    Answer(res, 403, kCrossOrigin);
    return Log(state, req, timer, 403, kCrossOrigin);
  }
  std::string id = SessionIdOf(ParseCookieHeader(req.Header("Cookie")));
  std::shared_ptr<Session> session = state.sessions->Find(id);
  state.audit_log.Write({"logout", session ? session->Get("PUB_USR_ID") : "", req.remote_address, "", nullptr, "OK"});
  if (!id.empty()) state.sessions->Remove(id);
  res.SetHeader("Set-Cookie", SessionCookie(state, "", /*expire=*/true));
  Answer(res, 200, "OK");
  Log(state, req, timer, 200, "OK");
}

// The drawn tree's ETag: its tree version and the character set it is sent
// in; empty when `tree` is not the one the store holds with its version
// (replaced meanwhile, or none).
std::string TreeEtag(const ServerState& state, const std::shared_ptr<const Array2D>& tree) {
  long long version = -1;
  if (!tree || state.app.SecHierarchical(version) != tree || version < 0) return {};
  return "\"tree-" + std::to_string(version) + (state.charset == HttpCharset::kShiftJis ? "-sjis\"" : "\"");
}

}  // namespace

void RegisterRoutes(Router& server, ServerState& state) {
  auto orvane = [&state](const HttpRequest& req, HttpResponse& res) { HandleOrvane(state, req, res); };
  server.Get("/orvane", orvane);
  server.Post("/orvane", orvane);

  server.Post("/login", [&state](const HttpRequest& req, HttpResponse& res) { HandleLogin(state, req, res); });
  server.Post("/logout", [&state](const HttpRequest& req, HttpResponse& res) { HandleLogout(state, req, res); });

  // The drawn tree, for pages (org::DrawnTreeText). Drawn again first when
  // another instance changed the tree since (one keyed select to know).
  server.Get("/application/App_A_strSec_hierarchical", [&state](const HttpRequest& req, HttpResponse& res) {
    Timer timer;
    std::shared_ptr<Session> session = state.sessions->Find(SessionIdOf(ParseCookieHeader(req.Header("Cookie"))));
    if (AccessDecision access = MayReadTree(state.access, state.config, session.get()); !access.allowed) {
      Answer(res, RefusalStatus(access), kSessionRefused);
      return Log(state, req, timer, RefusalStatus(access), kSessionRefused, {}, false, CheckFailure(access.failure));
    }
    std::shared_ptr<const Array2D> tree;
    if (Status s = org::CurrentSecHierarchical(state.config, state.app, tree); !s.ok()) {
      Answer(res, 500, "ERROR:DBSELECT");
      return Log(state, req, timer, 500, "ERROR:DBSELECT", {}, false, s.cause());
    }
    // The tree's version names it: unchanged, the page keeps what it has.
    const std::string etag = TreeEtag(state, tree);
    if (!etag.empty()) res.SetHeader("ETag", etag);
    if (IfNoneMatch(req, etag)) {
      res.status = 304;
      res.SetHeader("Cache-Control", "private, no-cache");
      return Log(state, req, timer, 304, "");
    }
    const std::string body = tree ? org::DrawnTreeText(*tree) : std::string();
    Answer(res, 200, body, state.charset);
    if (!etag.empty()) res.SetHeader("Cache-Control", "private, no-cache");  // kept, asked about each time
    Log(state, req, timer, 200, body);
  });

  RegisterMetricsRoute(server, state);
  RegisterApiRoutes(server, state);
  RegisterHistoryRoutes(server, state);
  RegisterRestoreRoutes(server, state);
  RegisterTransferRoutes(server, state);

  server.Get(
      "/healthz",
      [&state](const HttpRequest& req, HttpResponse& res) {
        Timer timer;
        Answer(res, 200, "OK");
        Log(state, req, timer, 200, "OK");
      },
      Router::RunOn::kIoThread);

  // Last: any GET that no route above took is a file of the pages.
  RegisterStaticFiles(server, state);

  server.SetNotFound([&state](const HttpRequest& req, HttpResponse& res) {
    Timer timer;
    res.status = 404;
    res.SetContent("Not Found", kTextPlain);
    Log(state, req, timer, res.status, res.body);
  });
}

}  // namespace orvane
