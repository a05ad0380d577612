// What every HTTP request of one `orvane serve` shares: the configuration
// file, the application values, the session store, the clock and the access
// log. Owned by HttpServer; every member is thread-safe.
#pragma once

#include <atomic>
#include <chrono>
#include <memory>
#include <string>

#include "base/clock.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "server/access.h"
#include "server/access_log.h"
#include "server/audit_log.h"
#include "server/charset.h"
#include "server/login_throttle.h"
#include "server/metrics.h"
#include "server/search_index.h"
#include "server/session_store.h"

namespace orvane {

inline constexpr std::string_view kSessionCookie = "ORVANE_SID";

struct ServerState {
  ServerState(std::string config_path, std::unique_ptr<SessionStore> sessions, const Clock& clock, std::ostream* log)
      : config(std::move(config_path)), sessions(std::move(sessions)), clock(clock), access_log(log) {}

  ConfigFile config;
  ApplicationStore app;
  std::unique_ptr<SessionStore> sessions;
  const Clock& clock;
  AccessLog access_log;
  AccessRule access;
  AuditLog audit_log;  // opened by serve; writes nowhere until then
  // Failed logins per id and per address: guessing is refused, not slept on.
  LoginThrottle login_throttle{clock};
  // The folder `serve --web-root` serves the pages from; empty: the pages
  // compiled into the program.
  std::string web_root;
  // What the HTTP edge speaks (serve --charset); fixed before serving.
  std::atomic<HttpCharset> charset{HttpCharset::kUtf8};
  // HTTPS (serve --tls-cert): the session cookie is never sent over plain HTTP.
  bool secure_cookie = false;
  Metrics metrics;
  // What the search box finds, held folded; read again after every change.
  SearchIndex search;
};

}  // namespace orvane
