#include "server/worker_pool.h"

#include <boost/asio/co_spawn.hpp>
#include <boost/asio/use_awaitable.hpp>

namespace orvane {

namespace asio = boost::asio;

WorkerPool::Ticket WorkerPool::Admit() {
  for (size_t n = in_flight_.load(); n < max_requests_;)
    if (in_flight_.compare_exchange_weak(n, n + 1)) return Ticket(this);
  return Ticket();
}

asio::awaitable<void> WorkerPool::Run(std::function<void()> work) {
  // co_spawn hands the completion back to the caller's own executor: a
  // coroutine resumed on the worker would go on running there.
  co_await asio::co_spawn(
      pool_,
      [&work]() -> asio::awaitable<void> {
        work();
        co_return;
      },
      asio::use_awaitable);
}

}  // namespace orvane
