// A real `orvane serve` front end on an ephemeral loopback port, running in
// a thread for one test, with a real HTTP client pointed at it.
#pragma once

#include <httplib.h>

#include <memory>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include "org/tree_change.h"
#include "server/http_server.h"

namespace orvane::testing {

// For servers whose tests send queries without logging in.
inline AccessRule OpenReads() { return {.anonymous_reads = true}; }

inline constexpr char kForm[] = "application/x-www-form-urlencoded";

class LiveServer {
 public:
  explicit LiveServer(const std::string& config_path, const Clock& clock = SystemClock::Instance(),
                      std::chrono::seconds session_timeout = std::chrono::minutes(20),
                      HttpOptions options = {"127.0.0.1", 0, 4}, AccessRule access = {},
                      std::unique_ptr<SessionStore> sessions = nullptr)
      : state_(config_path, sessions ? std::move(sessions) : std::make_unique<InMemorySessionStore>(session_timeout),
               clock, &log_) {
    state_.access = std::move(access);
    LoadApplicationValues(state_.config, state_.app).IgnoreError();  // a test without a catalogue has no menus
    // As `serve` does; a test without a database has no tree to draw.
    org::LoadSecHierarchical(state_.config, state_.app).IgnoreError();
    server_ = std::make_unique<HttpServer>(state_, std::move(options));
    std::string error;
    port_ = server_->Bind(error);
    thread_ = std::thread([this] { server_->Run(); });
    while (!server_->IsRunning()) std::this_thread::yield();
  }
  LiveServer(const std::string& config_path, AccessRule access, const Clock& clock = SystemClock::Instance())
      : LiveServer(config_path, clock, std::chrono::minutes(20), {"127.0.0.1", 0, 4}, std::move(access)) {}
  // With a session store of the test's choosing (the database's, to share
  // sessions between two servers).
  LiveServer(const std::string& config_path, AccessRule access, std::unique_ptr<SessionStore> sessions,
             const Clock& clock = SystemClock::Instance())
      : LiveServer(config_path, clock, std::chrono::minutes(20), {"127.0.0.1", 0, 4}, std::move(access),
                   std::move(sessions)) {}
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
  // The session cookie ("ORVANE_SID=<id>") a login sets; "" when refused.
  std::string LogIn(const std::string& user, const std::string& password) const {
    auto res = Client().Post("/login", "User_cd=" + user + "&User_PS=" + password, kForm);
    return res && res->body == "OK" ? res->get_header_value("Set-Cookie").substr(0, 43) : std::string();
  }
  // "status body" of a GET of `target`, or of a POST when a form is given.
  std::string Call(const std::string& target, const std::string& cookie = "",
                   const std::optional<std::string>& form = std::nullopt, httplib::Headers headers = {}) const {
    if (!cookie.empty()) headers.emplace("Cookie", cookie);
    auto res = form ? Client().Post(target, headers, *form, kForm) : Client().Get(target, headers);
    return res ? std::to_string(res->status) + " " + res->body : std::string("(no answer)");
  }

 private:
  std::ostringstream log_;  // written under the access log's mutex
  ServerState state_;
  std::unique_ptr<HttpServer> server_;
  int port_ = -1;
  std::thread thread_;
};

}  // namespace orvane::testing
