#include "server/http_server.h"

#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "data/db.h"
#include "server/edge.h"
#include "server/routes.h"
#include "server/tls_channel.h"

namespace orvane {

HttpServer::HttpServer(ServerState& state, HttpOptions options)
    : state_(state),
      options_(std::move(options)),
      server_(std::make_unique<EdgeServer>(options_.limits, options_.threads, state_.access_log)) {
  data::SetStatementTimeout(options_.db_timeout);
  state_.secure_cookie = !options_.tls_cert.empty();
  // SO_REUSEADDR alone: a restart can listen again at once, but a port
  // another server is listening on is refused, never shared (SO_REUSEPORT).
  server_->set_socket_options([](socket_t sock) {
    int yes = 1;
    ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  server_->set_keep_alive_max_count(1000);
  server_->set_keep_alive_timeout(
      std::max<time_t>(1, std::chrono::duration_cast<std::chrono::seconds>(options_.limits.idle_timeout).count()));
  server_->set_payload_max_length(options_.limits.max_body);
  server_->set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
    res.status = 500;
    res.set_content("ERROR:INTERNAL", "text/plain; charset=utf-8");
  });
  RegisterRoutes(*server_, state_);
}

HttpServer::~HttpServer() { Stop(); }

int HttpServer::Bind(std::string& error) {
  if (!options_.tls_cert.empty() || !options_.tls_key.empty()) {
    std::shared_ptr<TlsContext> tls = TlsContext::Load(options_.tls_cert, options_.tls_key, error);
    if (!tls) return -1;
    server_->UseTls(std::move(tls));
  }
  int port = 0;
  if (options_.port == 0) {
    port = server_->bind_to_any_port(options_.host);
  } else {
    port = server_->bind_to_port(options_.host, options_.port) ? options_.port : -1;
  }
  if (port < 0) {
    int reason = errno;  // of the failed bind or listen, before anything else runs
    error = "cannot listen on " + options_.host + ":" + std::to_string(options_.port) + ": " + std::strerror(reason);
    return port;
  }
  // httplib listens with a queue of 5; the edge accepts at once, so the
  // queue only has to absorb a burst as large as the requests it may hold.
  server_->SetBacklog(static_cast<int>(std::max<size_t>(options_.limits.max_requests, options_.threads)));
  return port;
}

bool HttpServer::Run() { return server_->Serve(); }

void HttpServer::Stop() {
  if (server_) server_->stop();
}

bool HttpServer::IsRunning() const { return server_->is_running(); }

}  // namespace orvane
