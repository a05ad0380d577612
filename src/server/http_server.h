// The HTTP front end: the edge (edge.h) in front of httplib's request
// handling, a fixed pool of worker threads, the routes of routes.cc and a
// catch-all that turns an exception into a 500.
#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "server/edge_limits.h"
#include "server/server_state.h"

namespace orvane {

class EdgeServer;

struct HttpOptions {
  std::string host = "127.0.0.1";
  int port = 8080;  // 0: any free port (tests)
  int threads = 8;
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
  ServerState& state_;
  HttpOptions options_;
  std::unique_ptr<EdgeServer> server_;
};

}  // namespace orvane
