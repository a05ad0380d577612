// Where login sessions live between requests.
//
// SessionStore is the interface; InMemorySessionStore keeps sessions in this
// process, DatabaseSessionStore (database_session_store.h) in a table that
// several instances share. All are thread-safe.
#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

#include "base/status.h"
#include "dispatch/session.h"

namespace orvane {

class SessionStore {
 public:
  virtual ~SessionStore() = default;
  // The live session under `id`, touched (its idle time restarts); null when
  // unknown or idle for longer than the timeout.
  virtual std::shared_ptr<Session> Find(const std::string& id) = 0;
  // A new empty session; `id` receives its fresh random id. It lasts once
  // Keep has been called for it.
  virtual std::shared_ptr<Session> Create(std::string& id) = 0;
  // After a request (or a login) is done with a session of Find or Create:
  // keeps what it changed. The memory store holds the object itself, so
  // there is nothing to do.
  [[nodiscard]] virtual Status Keep(const std::string& id, const std::shared_ptr<Session>& session) {
    return Status::Ok();
  }
  virtual void Remove(const std::string& id) = 0;
  // Ends every session of `user_id` (PUB_USR_ID) but the one under
  // `except_id` (may be empty): a changed password logs the user out
  // elsewhere.
  [[nodiscard]] virtual Status RemoveUserSessions(const std::string& user_id, const std::string& except_id) = 0;
  // How many sessions are held (for metrics); none when the store cannot
  // say cheaply.
  virtual std::optional<size_t> Count() { return std::nullopt; }
  // How long a session lives unused; the pages warn before it ends.
  virtual std::chrono::seconds IdleTimeout() const = 0;
};

// A random 128-bit id as 32 lower-case hex digits, from getrandom(2).
std::string NewSessionId();

class InMemorySessionStore final : public SessionStore {
 public:
  using TimeSource = std::function<std::chrono::steady_clock::time_point()>;
  // `max_sessions` bounds memory: at the cap the least recently used session
  // is dropped to make room.
  explicit InMemorySessionStore(std::chrono::seconds idle_timeout, size_t max_sessions = 100000,
                                TimeSource now = std::chrono::steady_clock::now);

  std::shared_ptr<Session> Find(const std::string& id) override;
  std::shared_ptr<Session> Create(std::string& id) override;
  void Remove(const std::string& id) override;
  Status RemoveUserSessions(const std::string& user_id, const std::string& except_id) override;
  std::optional<size_t> Count() override;
  std::chrono::seconds IdleTimeout() const override { return idle_timeout_; }

 private:
  struct Entry {
    std::shared_ptr<Session> session;
    std::chrono::steady_clock::time_point last_used;
  };
  void DropExpiredLocked(std::chrono::steady_clock::time_point now);

  const std::chrono::seconds idle_timeout_;
  const size_t max_sessions_;
  const TimeSource now_;
  mutable std::mutex mu_;
  std::map<std::string, Entry> sessions_;  // guarded by mu_
};

}  // namespace orvane
