// LoginThrottle: slows password guessing without a worker ever sleeping.
// Failed logins are counted per user id and per client address over a
// sliding window; once either has `limit` failures inside the window, its
// attempts are refused without the password being checked, until the
// oldest failure leaves the window. Nobody is locked out for good, so an
// attacker cannot keep a real user out past the window.
//
// Thread-safe. Memory is bounded: at most kMaxKeys ids and addresses are
// remembered each; past that, the ones without a failure in the window go.
#pragma once

#include <chrono>
#include <deque>
#include <mutex>
#include <string>
#include <unordered_map>

#include "base/clock.h"

namespace orvane {

class LoginThrottle {
 public:
  static constexpr size_t kMaxKeys = 100000;

  explicit LoginThrottle(const Clock& clock, int limit = 5, std::chrono::seconds window = std::chrono::minutes(5))
      : clock_(clock), limit_(limit), window_(window.count()) {}

  // False when the id or the address has `limit` failures in the window.
  bool Allows(const std::string& user_id, const std::string& address);
  void NoteFailure(const std::string& user_id, const std::string& address);
  // A right password forgets the id's failures (not the address's).
  void NoteSuccess(const std::string& user_id);

 private:
  using Failures = std::unordered_map<std::string, std::deque<long long>>;
  long long Now() const;
  // Drops the failures that left the window; true when `limit` remain.
  bool Full(Failures& failures, const std::string& key, long long now);
  void Note(Failures& failures, const std::string& key, long long now);

  const Clock& clock_;
  const int limit_;
  const long long window_;  // seconds
  std::mutex mu_;
  Failures by_id_, by_address_;  // guarded by mu_
};

}  // namespace orvane
