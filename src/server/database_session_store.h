// DatabaseSessionStore: login sessions in the table ORVANE_SESSION of the
// configured data source (LOCAL_DB_DSN), so that every instance serving
// that database knows every session.
//
// One row per session: SESSION_HASH (SHA-256 of the cookie's id, hex; the
// id itself is never stored, so a leaked table gives no usable cookie),
// SESSION_VALUES (name=value pairs, percent-encoded, joined by "&"),
// LAST_USED and EXPIRES (seconds since the epoch, twelve digits, so that
// text order is time order; EXPIRES is indexed).
//
// Costs: an id that cannot be one of ours (no cookie) costs nothing; Find
// is one keyed select; Keep writes one keyed update only when the request
// changed a value, or when the stored last use is older than the touch
// interval (a twentieth of the idle timeout), so a busy session is written
// about once a minute, not on every request. A session therefore ends
// between the idle timeout and the timeout plus the touch interval after
// its last use, never earlier. Each login deletes at most 100 expired rows
// through the EXPIRES index; an expired row that Find meets is deleted by
// its key. Logout deletes the row: the session ends on every instance, and
// so does a session that a password change ended.
#pragma once

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "data/db.h"
#include "dispatch/config.h"
#include "server/session_store.h"

namespace orvane {

class DatabaseSessionStore final : public SessionStore {
 public:
  using TimeSource = std::function<std::chrono::system_clock::time_point()>;
  // The wall clock: rows are read by other processes and machines.
  DatabaseSessionStore(std::string config_path, std::chrono::seconds idle_timeout,
                       TimeSource now = std::chrono::system_clock::now);

  std::shared_ptr<Session> Find(const std::string& id) override;
  std::shared_ptr<Session> Create(std::string& id) override;
  Status Keep(const std::string& id, const std::shared_ptr<Session>& session) override;
  void Remove(const std::string& id) override;
  // Rare (a password change): the rows are found by a LIKE on their
  // values, a scan of the live sessions, and confirmed one by one.
  Status RemoveUserSessions(const std::string& user_id, const std::string& except_id) override;

  std::chrono::seconds IdleTimeout() const override { return idle_timeout_; }
  std::chrono::seconds TouchInterval() const { return touch_interval_; }

  // The SHA-256 of `id` as 64 lower-case hex digits: the row's key.
  static std::string HashId(const std::string& id);
  // "NAME=value&..." with names and values percent-encoded, and back.
  static std::string SerialiseValues(const Session& session);
  static void ParseValues(const std::string& text, Session& session);

 private:
  Status Open(data::Connection& conn) const;
  // Up to 100 expired rows, found through the EXPIRES index.
  Status RemoveExpired(data::Connection& conn, long long now) const;
  long long NowSeconds() const;

  ConfigFile config_;
  const std::chrono::seconds idle_timeout_;
  const std::chrono::seconds touch_interval_;
  const TimeSource now_;
};

}  // namespace orvane
