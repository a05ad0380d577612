// The threads that run request handlers which may wait (the database, the
// mail server), so that the I/O threads never block; and the bound on
// requests in flight (read whole and not yet answered, wherever they run):
// past it a request is answered 503 at once instead of queued. Used by the
// HTTP sessions (http_session.cc). Thread-safe.
#pragma once

#include <atomic>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/thread_pool.hpp>
#include <cstddef>
#include <functional>

namespace orvane {

class WorkerPool {
 public:
  WorkerPool(int threads, size_t max_requests) : pool_(threads > 0 ? threads : 1), max_requests_(max_requests) {}

  // One request in flight; released when it goes out of scope. Empty when
  // `max_requests` are in flight already.
  class Ticket {
   public:
    Ticket() = default;
    explicit Ticket(WorkerPool* pool) : pool_(pool) {}
    Ticket(Ticket&& other) noexcept : pool_(other.pool_) { other.pool_ = nullptr; }
    Ticket& operator=(Ticket&&) = delete;
    ~Ticket() {
      if (pool_) --pool_->in_flight_;
    }
    explicit operator bool() const { return pool_ != nullptr; }

   private:
    WorkerPool* pool_ = nullptr;
  };
  Ticket Admit();

  // Runs `work` on a worker thread; the calling coroutine resumes on its
  // own executor once it is done. An exception of `work` is rethrown there.
  boost::asio::awaitable<void> Run(std::function<void()> work);

  size_t InFlight() const { return in_flight_.load(); }
  // Waits for the workers to finish what they run.
  void Join() { pool_.join(); }

 private:
  boost::asio::thread_pool pool_;
  const size_t max_requests_;
  std::atomic<size_t> in_flight_{0};
};

}  // namespace orvane
