#include "server/login_throttle.h"

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

}  // namespace

long long LoginThrottle::Now() const {
  LocalTime t = clock_.Now();
  return DaysFromCivil(t.year, static_cast<unsigned>(t.month), static_cast<unsigned>(t.day)) * 86400 + t.hour * 3600LL +
         t.minute * 60LL + t.second;
}

bool LoginThrottle::Full(Failures& failures, const std::string& key, long long now) {
  auto it = failures.find(key);
  if (it == failures.end()) return false;
  std::deque<long long>& times = it->second;
  while (!times.empty() && times.front() <= now - window_) times.pop_front();
  if (times.empty()) {
    failures.erase(it);
    return false;
  }
  return static_cast<int>(times.size()) >= limit_;
}

void LoginThrottle::Note(Failures& failures, const std::string& key, long long now) {
  if (failures.size() >= kMaxKeys && !failures.contains(key)) {
    std::erase_if(failures, [&](const auto& entry) { return entry.second.back() <= now - window_; });
    if (failures.size() >= kMaxKeys) failures.clear();  // a flood of new keys: forget rather than grow
  }
  std::deque<long long>& times = failures[key];
  times.push_back(now);
  while (static_cast<int>(times.size()) > limit_) times.pop_front();
}

bool LoginThrottle::Allows(const std::string& user_id, const std::string& address) {
  std::lock_guard lock(mu_);
  long long now = Now();
  bool id_full = Full(by_id_, user_id, now);
  bool address_full = Full(by_address_, address, now);
  return !id_full && !address_full;
}

void LoginThrottle::NoteFailure(const std::string& user_id, const std::string& address) {
  std::lock_guard lock(mu_);
  long long now = Now();
  Note(by_id_, user_id, now);
  Note(by_address_, address, now);
}

void LoginThrottle::NoteSuccess(const std::string& user_id) {
  std::lock_guard lock(mu_);
  by_id_.erase(user_id);
}

}  // namespace orvane
