// The HTTP front end: a listener on Asio I/O threads that starts a session
// (http_session.h, Boost.Beast) per connection, the routes of routes.cc,
// and a bounded pool of worker threads for the handlers that may wait.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "server/edge_limits.h"
#include "server/server_state.h"

namespace orvane {

struct HttpOptions {
  std::string host = "127.0.0.1";
  int port = 8080;     // 0: any free port (tests)
  int threads = 8;     // workers for the handlers that reach the database
  int io_threads = 0;  // threads that own the sockets; 0: one per core
  EdgeLimits limits = {};
  // Each database statement's time limit (0: none); on SQLite also the
  // longest wait for another writer's lock.
  std::chrono::seconds db_timeout{0};
  // Both set: HTTPS with this PEM certificate chain and private key, and
  // the session cookie marked Secure.
  std::string tls_cert = {}, tls_key = {};
};

class HttpServer {
 public:
  HttpServer(ServerState& state, HttpOptions options);
  ~HttpServer();

  // Loads the TLS certificate and key (if any) and binds the listening
  // socket; returns the port, or -1 with `error` set.
  int Bind(std::string& error);
  // Serves until Stop(); call after Bind. Then the requests in flight
  // finish and send their answers; false if one was still running at the
  // end of the grace period (EdgeLimits::shutdown_grace) or listening failed.
  bool Run();
  // Stops accepting connections; Run returns once the requests in flight are answered.
  void Stop();
  bool IsRunning() const;

 private:
  struct Impl;
  std::unique_ptr<Impl> impl_;
};

}  // namespace orvane
