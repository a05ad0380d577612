// A real `orvane serve` front end on an ephemeral loopback port, running in
// a thread for one test, with a real HTTP client pointed at it.
#pragma once

#include <httplib.h>

#include <memory>
#include <sstream>
#include <string>
#include <thread>

#include "server/http_server.h"

namespace orvane::testing {

class LiveServer {
 public:
  explicit LiveServer(const std::string& config_path, const Clock& clock = SystemClock::Instance(),
                      std::chrono::seconds session_timeout = std::chrono::minutes(20),
                      HttpOptions options = {"127.0.0.1", 0, 4})
      : state_(config_path, std::make_unique<InMemorySessionStore>(session_timeout), clock, &log_) {
    std::string error;
    LoadApplicationValues(state_.config, state_.app, error);
    server_ = std::make_unique<HttpServer>(state_, std::move(options));
    port_ = server_->Bind(error);
    thread_ = std::thread([this] { server_->Run(); });
    while (!server_->IsRunning()) std::this_thread::yield();
  }
  ~LiveServer() {
    server_->Stop();
    thread_.join();
  }

  int port() const { return port_; }
  ServerState& state() { return state_; }
  std::string Log() const { return log_.str(); }
  httplib::Client Client() const {
    httplib::Client c("127.0.0.1", port_);
    c.set_read_timeout(30);
    return c;
  }

 private:
  std::ostringstream log_;  // written under the access log's mutex
  ServerState state_;
  std::unique_ptr<HttpServer> server_;
  int port_ = -1;
  std::thread thread_;
};

}  // namespace orvane::testing
