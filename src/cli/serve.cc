#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iostream>
#include <thread>

#include "cli/commands.h"
#include "cli/serve_limits.h"
#include "data/db.h"
#include "org/group_paths.h"
#include "server/http_server.h"

namespace orvane::cli {
namespace {

struct ServeOptions {
  std::string config = "./ORVANE.ini";
  std::string listen = "127.0.0.1:8080";
  int threads = 8;
  int session_timeout_minutes = 20;
  ServeLimits limits;
};

// LOCAL_DB_DSN is set and names a data source that odbc.ini defines. A
// defined source whose database does not answer yet is no reason to refuse.
Status DataSourceDefined(const ConfigFile& config) {
  std::string dsn;
  if (Status s = config.ComIniFileLoad("LOCAL_DB_DSN", dsn); !s.ok()) return s;
  data::Connection conn;
  Status open = data::Com_funDbOpen(dsn, "", "", conn);
  if (open.cause().sqlstate == "IM002")
    return Status::Failure("the data source \"" + dsn + "\" (LOCAL_DB_DSN) is not defined in " + config.Folder() +
                           "/odbc.ini or the system's odbc.ini");
  if (open.ok()) data::Com_funDbClose(conn).IgnoreError();  // it was only a probe
  return Status::Ok();
}

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
  // What cannot work is refused at once, with its reason, not answered
  // with an error to every request later.
  if (std::ifstream probe(o.config); !probe) {
    std::cerr << "orvane serve: cannot read the configuration file " << o.config << ": " << std::strerror(errno)
              << "\n";
    return 2;
  }
  data::UseOdbcIniBeside(ConfigFile(o.config).Folder());  // before any thread opens a connection
  if (Status s = DataSourceDefined(ConfigFile(o.config)); !s.ok()) {
    std::cerr << "orvane serve: " << s.trail() << "\n";
    return 2;
  }
  ServerState state(o.config, std::make_unique<InMemorySessionStore>(std::chrono::minutes(o.session_timeout_minutes)),
                    SystemClock::Instance(), &std::cerr);
  std::string error;
  if (!LoadApplicationValues(state.config, state.app, error)) {
    std::cerr << "orvane serve: " << error << "\n";
    return 1;
  }
  HttpServer server(state, http);
  if (server.Bind(error) < 0) {
    std::cerr << "orvane serve: " << error << "\n";
    return 2;
  }
  // The drawn tree is ready before the first request is served (requests
  // wait in the listen queue meanwhile); a database that is not there yet
  // only delays it until the first change of the tree.
  if (Status s = org::LoadSecHierarchical(state.config, state.app); !s.ok())
    std::cerr << "orvane serve: the section tree is not drawn yet: " << s.trail() << "\n";
  // Stop cleanly on Ctrl-C or SIGTERM: a thread waits for the signal.
  sigset_t signals;
  sigemptyset(&signals);
  sigaddset(&signals, SIGINT);
  sigaddset(&signals, SIGTERM);
  pthread_sigmask(SIG_BLOCK, &signals, nullptr);
  std::thread waiter([&] {
    int sig = 0;
    sigwait(&signals, &sig);
    server.Stop();
  });
  waiter.detach();
  std::cerr << "orvane: serving http://" << o.listen << "/orvane with " << o.config << " (" << http.threads
            << " threads)\n";
  if (!server.Run()) {
    // A request still running past the grace period, or listening failed:
    // leave without waiting for it.
    std::cerr << "orvane: stopped with requests unfinished\n";
    std::_Exit(1);
  }
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
      "  GET|POST /orvane?ReqNo=...  one request; POST may carry the fields as a form body\n"
      "  POST /login, POST /logout   start and end a login session\n"
      "  GET /healthz                answers OK\n"
      "  GET /application/App_A_strSec_hierarchical  the drawn section tree, a row a line\n"
      "One access-log line per request goes to stderr, refused ones included. Stop with Ctrl-C or\n"
      "SIGTERM: the requests in flight finish and are answered, then the server exits 0.\n"
      "Example: orvane serve --config var/ORVANE.ini --listen 127.0.0.1:8080");
  cmd->add_option("--config", options->config, "Configuration file (ORVANE.ini); menuinfo.csv and odbc.ini beside it")
      ->capture_default_str();
  cmd->add_option("--listen", options->listen, "Address to listen on, HOST:PORT")->capture_default_str();
  cmd->add_option("--threads", options->threads, "Worker threads serving requests")
      ->capture_default_str()
      ->check(CLI::Range(1, 1024));
  cmd->add_option("--session-timeout", options->session_timeout_minutes, "Idle minutes before a login session ends")
      ->capture_default_str()
      ->check(CLI::Range(1, 24 * 60));
  options->limits.Add(*cmd);
  cmd->callback([options, &exit_code] { exit_code = Serve(*options); });
}

}  // namespace orvane::cli
