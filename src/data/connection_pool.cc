#include "data/connection_pool.h"

#include "data/odbc_env.h"

namespace orvane::data {

ConnectionPool& ConnectionPool::Instance() {
  // Never destroyed: request threads may still return connections while
  // the process exits.
  static ConnectionPool* pool = new ConnectionPool;
  return *pool;
}

std::unique_ptr<PhysicalConnection> ConnectionPool::Acquire(const std::string& dsn, const std::string& user,
                                                            const std::string& password, Diagnostic& diag) {
  std::string key = CurrentOdbcIni() + '\n' + dsn + '\n' + user + '\n' + password;
  for (;;) {
    std::unique_ptr<PhysicalConnection> c;
    {
      std::lock_guard<std::mutex> lock(mu_);
      auto it = idle_.find(key);
      if (it == idle_.end() || it->second.empty()) break;
      c = std::move(it->second.back());
      it->second.pop_back();
    }
    if (!c->IsDead()) {
      in_use_.fetch_add(1, std::memory_order_relaxed);
      return c;
    }
    // A dead one is closed outside the lock; try the next.
  }
  std::unique_ptr<PhysicalConnection> c = PhysicalConnection::Open(dsn, user, password, diag);
  if (c) {
    c->key = std::move(key);
    in_use_.fetch_add(1, std::memory_order_relaxed);
  }
  return c;
}

void ConnectionPool::Release(std::unique_ptr<PhysicalConnection> conn) {
  if (!conn) return;
  in_use_.fetch_sub(1, std::memory_order_relaxed);
  if (conn->in_transaction()) {
    Diagnostic ignored;
    if (!conn->Rollback(ignored)) return;  // closed on leaving scope
  }
  if (conn->broken()) return;
  {
    std::lock_guard<std::mutex> lock(mu_);
    auto& list = idle_[conn->key];
    if (list.size() < max_idle_) {
      list.push_back(std::move(conn));
      return;
    }
  }
  // Over the cap: `conn` disconnects here, outside the lock.
}

void ConnectionPool::CloseIdle() {
  std::map<std::string, std::vector<std::unique_ptr<PhysicalConnection>>> closing;
  {
    std::lock_guard<std::mutex> lock(mu_);
    closing.swap(idle_);
  }
}

size_t ConnectionPool::IdleCount() const {
  std::lock_guard<std::mutex> lock(mu_);
  size_t n = 0;
  for (const auto& [key, list] : idle_) n += list.size();
  return n;
}

void ConnectionPool::set_max_idle(size_t n) {
  std::lock_guard<std::mutex> lock(mu_);
  max_idle_ = n;
}

}  // namespace orvane::data
