#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <memory>
#include <thread>

#include "cli/commands.h"
#include "cli/serve_limits.h"
#include "data/db.h"
#include "members/login.h"
#include "org/tree_change.h"
#include "server/database_session_store.h"
#include "server/history_keeper.h"
#include "server/http_server.h"
#include "server/origin_check.h"

namespace orvane::cli {
namespace {

struct ServeOptions {
  std::string config = "./ORVANE.ini";
  std::string listen = "127.0.0.1:8080";
  int threads = 8;
  int session_timeout_minutes = 20;
  AccessRule access;
  std::string audit_log;  // empty: audit.log beside the configuration file
  std::string web_root;   // empty: the pages compiled in
  std::string charset = "UTF-8";
  std::string sessions = "memory";
  std::string tls_cert, tls_key;  // both: HTTPS
  ServeLimits limits;
};

bool SplitHostPort(const std::string& listen, std::string& host, int& port) {
  size_t colon = listen.rfind(':');
  if (colon == std::string::npos || colon == 0) return false;
  host = listen.substr(0, colon);
  if (host.size() > 2 && host.front() == '[' && host.back() == ']') host = host.substr(1, host.size() - 2);
  try {
    size_t used = 0;
    port = std::stoi(listen.substr(colon + 1), &used);
    return used == listen.size() - colon - 1 && port > 0 && port < 65536;
  } catch (...) {
    return false;
  }
}

int Serve(const ServeOptions& o) {
  HttpOptions http;
  if (!SplitHostPort(o.listen, http.host, http.port)) {
    std::cerr << "orvane serve: --listen must be HOST:PORT, got \"" << o.listen << "\"\n";
    return 2;
  }
  http.threads = o.threads;
  o.limits.ApplyTo(http);
  if (o.tls_cert.empty() != o.tls_key.empty()) {
    std::cerr << "orvane serve: --tls-cert and --tls-key go together\n";
    return 2;
  }
  http.tls_cert = o.tls_cert;
  http.tls_key = o.tls_key;
  if (!o.web_root.empty() && !std::filesystem::is_directory(o.web_root)) {
    std::cerr << "orvane serve: --web-root " << o.web_root << " is not a folder\n";
    return 2;
  }
  if (int refused = CheckInstallation("serve", o.config, /*dsn_required=*/true)) return refused;
  if (!members::IsMenuColumn(o.access.admin_column)) {
    std::cerr << "orvane serve: --admin-column must name a menu-rights column (MENU01 ... MENU79), got \""
              << o.access.admin_column << "\"\n";
    return 2;
  }
  const std::chrono::minutes timeout(o.session_timeout_minutes);
  std::unique_ptr<SessionStore> sessions;
  if (o.sessions == "database") {
    sessions = std::make_unique<DatabaseSessionStore>(o.config, timeout);
  } else {
    sessions = std::make_unique<InMemorySessionStore>(timeout);
  }
  ServerState state(o.config, std::move(sessions), SystemClock::Instance(), &std::cerr);
  state.access = o.access;
  // User storage keeps the administrator's column out of new users' rows.
  state.app.SetAdminColumn(o.access.admin_column);
  const std::string audit_path = o.audit_log.empty() ? state.config.Folder() + "/audit.log" : o.audit_log;
  if (Status s = state.audit_log.Open(audit_path); !s.ok()) {
    std::cerr << "orvane serve: " << s.trail() << "\n";
    return 2;
  }
  state.web_root = o.web_root;
  if (!LoadApplication("serve", state.config, state.app)) return 1;
  HttpCharset charset = HttpCharset::kUtf8;
  if (ParseHttpCharset(o.charset, charset)) state.charset = charset;  // the option allows no other
  // Stop cleanly on Ctrl-C or SIGTERM: a thread waits for the signal. Blocked
  // before the server starts its threads, which inherit the mask.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  HttpServer server(state, http);
  std::string error;
  if (server.Bind(error) < 0) {
    std::cerr << "orvane serve: " << error << "\n";
    return 2;
  }
  // The drawn tree is ready before the first request is served (requests
  // wait in the listen queue meanwhile); a database that is not there yet
  // only delays it until the first change of the tree.
  if (Status s = org::LoadSecHierarchical(state.config, state.app); !s.ok())
    std::cerr << "orvane serve: the section tree is not drawn yet: " << s.trail() << "\n";
  // Purges the change history once a day and shows its size on /metrics.
  auto keeper = std::make_unique<HistoryKeeper>(state);
  std::thread waiter([&] {
    int sig = 0;
    sigwait(&signals, &sig);
    server.Stop();
  });
  waiter.detach();
  if (o.access.anonymous_reads)
    std::cerr << "orvane serve: WARNING: --allow-anonymous-reads: every query, the user rows with their passwords "
                 "included, answers without a login\n";
  std::cerr << "orvane: serving " << (o.tls_cert.empty() ? "http" : "https") << "://" << o.listen << "/ with "
            << o.config << " (" << http.threads << " threads, sessions in " << o.sessions << ")\n";
  if (!server.Run()) {
    // A request still running past the grace period, or listening failed:
    // leave without waiting for it.
    std::cerr << "orvane: stopped with requests unfinished\n";
    std::_Exit(1);
  }
  keeper.reset();
  data::ClosePooledConnections();
  std::cerr << "orvane: stopped\n";
  return 0;
}

}  // namespace

void AddServe(CLI::App& app, int& exit_code) {
  auto options = std::make_shared<ServeOptions>();
  CLI::App* cmd = app.add_subcommand("serve", "Serve the administration pages' requests over HTTP");
  cmd->footer(
      "Routes:\n"
      "  GET /                       the administration pages (log in with a user holding the administrator right)\n"
      "  GET|POST /orvane?ReqNo=...  one request; POST may carry the fields as a form body; needs\n"
      "                              an administrator's login session (else 401 ERROR:SESSIONCHECK)\n"
      "  POST /login, POST /logout   start and end a login session\n"
      "  GET /healthz                answers OK\n"
      "  GET /metrics                counts and latencies, Prometheus text format\n"
      "  GET /application/App_A_strSec_hierarchical  the drawn section tree, a row a line\n"
      "One access-log line per request goes to stderr, refused ones included. Stop with Ctrl-C or\n"
      "SIGTERM: the requests in flight finish and are answered, then the server exits 0.\n"
      "Example: orvane serve --config var/ORVANE.ini --listen 127.0.0.1:8080");
  cmd->add_option("--config", options->config, "Configuration file (ORVANE.ini); menuinfo.csv and odbc.ini beside it")
      ->capture_default_str();
  cmd->add_option("--listen", options->listen, "Address to listen on, HOST:PORT")->capture_default_str();
  cmd->add_option("--threads", options->threads,
                  "Worker threads for the requests that reach the database (the sockets have I/O threads of their own, "
                  "one per core)")
      ->capture_default_str()
      ->check(CLI::Range(1, 1024));
  cmd->add_option("--session-timeout", options->session_timeout_minutes, "Idle minutes before a login session ends")
      ->capture_default_str()
      ->check(CLI::Range(1, 24 * 60));
  cmd->add_option("--admin-column", options->access.admin_column,
                  "Menu-rights column whose own number marks an administrator (MENU50 holding \"50\"); only "
                  "administrators may call /orvane over HTTP")
      ->capture_default_str();
  cmd->add_option("--audit-log", options->audit_log,
                  "Append a JSON line for every change, login and logout to this file (default: audit.log "
                  "beside the configuration file); read it with `orvane audit`");
  cmd->add_flag("--allow-anonymous-reads", options->access.anonymous_reads,
                "Let queries (not changes) run without a login, for pages that never log in");
  cmd->add_option("--trusted-origin", options->access.trusted_origins,
                  "Also accept changes from pages served at this origin (scheme://host[:port]); repeatable. "
                  "Browsers' changes from any other site get 403 ERROR:CROSSORIGIN")
      ->check([](const std::string& url) {
        return OriginOf(url).empty() ? "not an http(s) origin: " + url : std::string();
      });
  cmd->add_option("--web-root", options->web_root,
                  "Serve the pages from this folder instead of the copy compiled in (working on web/)");
  cmd->add_option("--charset", options->charset, "Character set of the pages: UTF-8 or Shift_JIS (code page 932)")
      ->capture_default_str()
      ->check(CLI::IsMember({"UTF-8", "Shift_JIS"}, CLI::ignore_case));
  cmd->add_option("--sessions", options->sessions,
                  "Where login sessions live: memory (this process) or database (the table ORVANE_SESSION of "
                  "LOCAL_DB_DSN, shared by every instance on that database; run init-db first)")
      ->capture_default_str()
      ->check(CLI::IsMember({"memory", "database"}));
  cmd->add_option("--tls-cert", options->tls_cert,
                  "Serve HTTPS with this certificate (PEM, the server's first, then its chain); needs --tls-key. "
                  "The session cookie is then Secure");
  cmd->add_option("--tls-key", options->tls_key, "The private key of --tls-cert (PEM, not encrypted)");
  options->limits.Add(*cmd);
  cmd->callback([options, &exit_code] { exit_code = Serve(*options); });
}

}  // namespace orvane::cli
