// LoginThrottle: slows password guessing without a worker ever sleeping,
// and without handing an attacker a way to lock a user out.
//
// Failed logins are counted over a sliding window per client address and
// per pair of user id and address; once either has `limit` failures inside
// the window, its attempts are refused without the password being checked
// until the oldest failure leaves the window. Per user id alone there is
// only a short delay, growing with the failures and capped at
// kMaxUserDelay: the right password from another address still logs in
// moments later, however many addresses guess. Attempts refused unchecked
// count for nothing, except those within an id's delay: they count against
// their address and pair, as failures.
//
// Thread-safe. Memory is bounded: at most kMaxKeys keys are remembered per
// count; past that, the ones without a failure in the window go.
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
  // Failures of an id (from anywhere) before its delay starts, and the
  // delay's cap: 1, 2, 4, 4, ... seconds after each further failure.
  static constexpr int kFreeUserFailures = 3;
  static constexpr long long kMaxUserDelay = 4;  // seconds

  enum class Verdict {
    kAllowed,
    kAddress,        // the address failed too often
    kUserAtAddress,  // this id failed too often from this address
    kUserDelay,      // this id failed moments ago (from any address)
  };

  explicit LoginThrottle(const Clock& clock, int limit = 5, std::chrono::seconds window = std::chrono::minutes(5))
      : clock_(clock), limit_(limit), window_(window.count()) {}

  Verdict Check(const std::string& user_id, const std::string& address);
  void NoteFailure(const std::string& user_id, const std::string& address);
  // A right password forgets the id's failures and the pair's (not the
  // address's: other ids may have been guessed from it).
  void NoteSuccess(const std::string& user_id, const std::string& address);

  // "address", "user-at-address" or "user-delay" (the audit log's words).
  static const char* Name(Verdict v);

 private:
  using Failures = std::unordered_map<std::string, std::deque<long long>>;
  long long Now() const;
  // Drops the failures that left the window; how many remain.
  static int Count(Failures& failures, const std::string& key, long long now, long long window);
  void Note(Failures& failures, const std::string& key, long long now, size_t keep);
  static std::string Pair(const std::string& user_id, const std::string& address) { return user_id + '\n' + address; }

  const Clock& clock_;
  const int limit_;
  const long long window_;  // seconds
  std::mutex mu_;
  Failures by_address_, by_pair_, by_id_;  // guarded by mu_
};

}  // namespace orvane
