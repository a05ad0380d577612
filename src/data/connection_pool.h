// ConnectionPool: open connections kept between operations, keyed by data
// source, login and odbc.ini, so that the system's one connection per
// operation costs no reconnect. A returned connection is rolled back and has
// autocommit on again; a lost one is discarded. At most `max_idle` idle
// connections per key are kept; more are closed on return.
// Thread-safe.
#pragma once

#include <atomic>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "data/physical_connection.h"

namespace orvane::data {

class ConnectionPool {
 public:
  static constexpr size_t kDefaultMaxIdle = 16;

  // The pool every Com_funDbOpen uses.
  static ConnectionPool& Instance();

  // An idle connection for the key, or a new one; null with `diag` set when
  // connecting fails.
  std::unique_ptr<PhysicalConnection> Acquire(const std::string& dsn, const std::string& user,
                                              const std::string& password, Diagnostic& diag);
  // Takes a connection back: rolled back and reset, or closed when it is
  // lost, cannot be reset or the key already has `max_idle` idle ones.
  void Release(std::unique_ptr<PhysicalConnection> conn);

  // Closes every idle connection (tests between databases, commands at exit).
  void CloseIdle();
  size_t IdleCount() const;
  // Connections handed out and not yet returned (for metrics).
  size_t InUseCount() const { return in_use_.load(std::memory_order_relaxed); }
  void set_max_idle(size_t n);

 private:
  std::atomic<size_t> in_use_{0};
  mutable std::mutex mu_;
  size_t max_idle_ = kDefaultMaxIdle;                                             // guarded by mu_
  std::map<std::string, std::vector<std::unique_ptr<PhysicalConnection>>> idle_;  // guarded by mu_
};

}  // namespace orvane::data
