#include "server/login_throttle.h"

#include <algorithm>

namespace orvane {
namespace {

// Days since 1970-01-01 of a civil date (proleptic Gregorian).
long long DaysFromCivil(long long y, unsigned m, unsigned d) {
  y -= m <= 2;
  const long long era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<long long>(doe) - 719468;
}

// How long an id waits after its latest failure, by its failures in the window.
long long UserDelay(int failures) {
  if (failures < LoginThrottle::kFreeUserFailures) return 0;
  int doublings = std::min(failures - LoginThrottle::kFreeUserFailures, 8);
  return std::min(1LL << doublings, LoginThrottle::kMaxUserDelay);
}

}  // namespace

long long LoginThrottle::Now() const {
  LocalTime t = clock_.Now();
  return DaysFromCivil(t.year, static_cast<unsigned>(t.month), static_cast<unsigned>(t.day)) * 86400 + t.hour * 3600LL +
         t.minute * 60LL + t.second;
}

int LoginThrottle::Count(Failures& failures, const std::string& key, long long now, long long window) {
  auto it = failures.find(key);
  if (it == failures.end()) return 0;
  std::deque<long long>& times = it->second;
  while (!times.empty() && times.front() <= now - window) times.pop_front();
  if (times.empty()) {
    failures.erase(it);
    return 0;
  }
  return static_cast<int>(times.size());
}

void LoginThrottle::Note(Failures& failures, const std::string& key, long long now, size_t keep) {
  if (failures.size() >= kMaxKeys && !failures.contains(key)) {
    std::erase_if(failures, [&](const auto& entry) { return entry.second.back() <= now - window_; });
    if (failures.size() >= kMaxKeys) failures.clear();  // a flood of new keys: forget rather than grow
  }
  std::deque<long long>& times = failures[key];
  times.push_back(now);
  while (times.size() > keep) times.pop_front();
}

LoginThrottle::Verdict LoginThrottle::Check(const std::string& user_id, const std::string& address) {
  std::lock_guard lock(mu_);
  const long long now = Now();
  if (Count(by_address_, address, now, window_) >= limit_) return Verdict::kAddress;
  if (Count(by_pair_, Pair(user_id, address), now, window_) >= limit_) return Verdict::kUserAtAddress;
  if (int failures = Count(by_id_, user_id, now, window_); failures > 0) {
    if (now < by_id_[user_id].back() + UserDelay(failures)) {
      // A guess all the same: it counts against the address and the pair,
      // not the id (whose delay would then never end).
      Note(by_address_, address, now, static_cast<size_t>(limit_));
      Note(by_pair_, Pair(user_id, address), now, static_cast<size_t>(limit_));
      return Verdict::kUserDelay;
    }
  }
  return Verdict::kAllowed;
}

void LoginThrottle::NoteFailure(const std::string& user_id, const std::string& address) {
  std::lock_guard lock(mu_);
  const long long now = Now();
  const size_t limit = static_cast<size_t>(limit_);
  Note(by_address_, address, now, limit);
  Note(by_pair_, Pair(user_id, address), now, limit);
  // Enough to reach the delay's cap; more would change nothing.
  Note(by_id_, user_id, now, static_cast<size_t>(kFreeUserFailures) + 8);
}

void LoginThrottle::NoteSuccess(const std::string& user_id, const std::string& address) {
  std::lock_guard lock(mu_);
  by_id_.erase(user_id);
  by_pair_.erase(Pair(user_id, address));
}

const char* LoginThrottle::Name(Verdict v) {
  switch (v) {
    case Verdict::kAddress:
      return "address";
    case Verdict::kUserAtAddress:
      return "user-at-address";
    case Verdict::kUserDelay:
      return "user-delay";
    case Verdict::kAllowed:
      break;
  }
  return "";
}

}  // namespace orvane
