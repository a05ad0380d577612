#include "server/http_server.h"

#include <httplib.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>

#include "server/routes.h"

namespace orvane {

HttpServer::HttpServer(ServerState& state, HttpOptions options)
    : state_(state), options_(std::move(options)), server_(std::make_unique<httplib::Server>()) {
  int threads = options_.threads > 0 ? options_.threads : 1;
  server_->new_task_queue = [threads] { return new httplib::ThreadPool(static_cast<size_t>(threads)); };
  // SO_REUSEADDR alone: a restart can listen again at once, but a port
  // another server is listening on is refused, never shared (SO_REUSEPORT).
  server_->set_socket_options([](socket_t sock) {
    int yes = 1;
    ::setsockopt(sock, SOL_SOCKET, SO_REUSEADDR, &yes, sizeof yes);
  });
  server_->set_tcp_nodelay(true);  // answers are small: don't wait for delayed ACKs
  server_->set_keep_alive_max_count(1000);
  server_->set_payload_max_length(1 << 20);  // the forms are small; refuse floods
  server_->set_read_timeout(10);
  server_->set_write_timeout(10);
  server_->set_exception_handler([](const httplib::Request&, httplib::Response& res, std::exception_ptr) {
    res.status = 500;
    res.set_content("ERROR:INTERNAL", "text/plain; charset=utf-8");
  });
  RegisterRoutes(*server_, state_);
}

HttpServer::~HttpServer() { Stop(); }

int HttpServer::Bind(std::string& error) {
  int port = 0;
  if (options_.port == 0) {
    port = server_->bind_to_any_port(options_.host);
  } else {
    port = server_->bind_to_port(options_.host, options_.port) ? options_.port : -1;
  }
  if (port < 0) {
    int reason = errno;  // of the failed bind or listen, before anything else runs
    error = "cannot listen on " + options_.host + ":" + std::to_string(options_.port) + ": " + std::strerror(reason);
  }
  return port;
}

bool HttpServer::Run() { return server_->listen_after_bind(); }

void HttpServer::Stop() {
  if (server_) server_->stop();
}

bool HttpServer::IsRunning() const { return server_->is_running(); }

}  // namespace orvane
