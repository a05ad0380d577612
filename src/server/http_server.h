// The HTTP front end: cpp-httplib with a fixed thread pool, the routes of
// routes.cc and a catch-all that turns an exception into a 500.
#pragma once

#include <memory>
#include <string>

#include "server/server_state.h"

namespace httplib {
class Server;
}

namespace orvane {

struct HttpOptions {
  std::string host = "127.0.0.1";
  int port = 8080;  // 0: any free port (tests)
  int threads = 8;
};

class HttpServer {
 public:
  HttpServer(ServerState& state, HttpOptions options);
  ~HttpServer();

  // Binds the listening socket; returns the port, or -1 with `error` set.
  int Bind(std::string& error);
  // Serves until Stop(); call after Bind.
  bool Run();
  void Stop();
  bool IsRunning() const;

 private:
  ServerState& state_;
  HttpOptions options_;
  std::unique_ptr<httplib::Server> server_;
};

}  // namespace orvane
