#include "server/session_store.h"

#include <sys/random.h>

#include <stdexcept>

namespace orvane {

std::string NewSessionId() {
  unsigned char bytes[16];
  size_t got = 0;
  while (got < sizeof bytes) {
    ssize_t n = ::getrandom(bytes + got, sizeof bytes - got, 0);
    if (n < 0) throw std::runtime_error("getrandom failed");
    got += static_cast<size_t>(n);
  }
  static constexpr char kHex[] = "0123456789abcdef";
  std::string id;
  for (unsigned char b : bytes) {
    id.push_back(kHex[b >> 4]);
    id.push_back(kHex[b & 15]);
  }
  return id;
}

InMemorySessionStore::InMemorySessionStore(std::chrono::seconds idle_timeout, size_t max_sessions, TimeSource now)
    : idle_timeout_(idle_timeout), max_sessions_(max_sessions), now_(std::move(now)) {}

std::shared_ptr<Session> InMemorySessionStore::Find(const std::string& id) {
  auto now = now_();
  std::lock_guard lock(mu_);
  auto it = sessions_.find(id);
  if (it == sessions_.end()) return nullptr;
  if (now - it->second.last_used > idle_timeout_) {
    sessions_.erase(it);
    return nullptr;
  }
  it->second.last_used = now;
  return it->second.session;
}

std::shared_ptr<Session> InMemorySessionStore::Create(std::string& id) {
  auto now = now_();
  auto session = std::make_shared<Session>();
  std::lock_guard lock(mu_);
  if (sessions_.size() >= max_sessions_) DropExpiredLocked(now);
  if (sessions_.size() >= max_sessions_) {
    auto oldest = sessions_.begin();
    for (auto it = sessions_.begin(); it != sessions_.end(); ++it)
      if (it->second.last_used < oldest->second.last_used) oldest = it;
    sessions_.erase(oldest);
  }
  do id = NewSessionId();
  while (sessions_.count(id));
  sessions_[id] = {session, now};
  return session;
}

void InMemorySessionStore::Remove(const std::string& id) {
  std::lock_guard lock(mu_);
  sessions_.erase(id);
}

Status InMemorySessionStore::RemoveUserSessions(const std::string& user_id, const std::string& except_id) {
  if (user_id.empty()) return Status::Ok();  // anonymous sessions are nobody's
  std::lock_guard lock(mu_);
  std::erase_if(sessions_, [&](const auto& entry) {
    return entry.first != except_id && entry.second.session->Get("PUB_USR_ID") == user_id;
  });
  return Status::Ok();
}

std::optional<size_t> InMemorySessionStore::Count() {
  auto now = now_();
  std::lock_guard lock(mu_);
  DropExpiredLocked(now);  // a scrape's scan: idle sessions are not counted
  return sessions_.size();
}

void InMemorySessionStore::DropExpiredLocked(std::chrono::steady_clock::time_point now) {
  for (auto it = sessions_.begin(); it != sessions_.end();)
    it = (now - it->second.last_used > idle_timeout_) ? sessions_.erase(it) : std::next(it);
}

}  // namespace orvane
