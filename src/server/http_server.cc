#include "server/http_server.h"

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/co_spawn.hpp>
#include <boost/asio/detached.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <thread>

#include "data/db.h"
#include "server/http_session.h"
#include "server/routes.h"
#include "server/tls_context.h"

namespace orvane {

namespace asio = boost::asio;
using tcp = asio::ip::tcp;

struct HttpServer::Impl {
  Impl(ServerState& state, HttpOptions options)
      : options(std::move(options)),
        io_threads(this->options.io_threads > 0 ? this->options.io_threads
                                                : std::max(1, static_cast<int>(std::thread::hardware_concurrency()))),
        pool(std::make_unique<WorkerPool>(this->options.threads, this->options.limits.max_requests)),
        shared{state, router, this->options.limits, *pool, connections, stopping},
        ios(MakeContexts(io_threads)),
        acceptor(*ios.front()) {
    RegisterRoutes(router, state);
  }

  // One context a thread: a connection lives on one of them, so its
  // coroutine, its timer and its socket need no strand and no lock.
  static std::vector<std::unique_ptr<asio::io_context>> MakeContexts(int n) {
    std::vector<std::unique_ptr<asio::io_context>> ios;
    for (int i = 0; i < n; ++i) ios.push_back(std::make_unique<asio::io_context>(1));
    return ios;
  }

  // Accepts until the acceptor is closed; the connections go to the I/O
  // threads in turn.
  asio::awaitable<void> Listen() {
    asio::steady_timer pause(acceptor.get_executor());
    for (size_t next = 0; acceptor.is_open(); ++next) {
      asio::io_context& io = *ios[next % ios.size()];
      auto [ec, socket] = co_await acceptor.async_accept(io, asio::as_tuple(asio::use_awaitable));
      if (ec == asio::error::operation_aborted) break;
      if (ec) {  // out of descriptors, say: try again shortly rather than spin
        pause.expires_after(std::chrono::milliseconds(50));
        co_await pause.async_wait(asio::as_tuple(asio::use_awaitable));
        continue;
      }
      asio::any_io_executor executor = socket.get_executor();
      asio::co_spawn(executor, ServeConnection(std::move(socket), tls.get(), shared), asio::detached);
    }
  }

  HttpOptions options;
  const int io_threads;
  std::unique_ptr<asio::ssl::context> tls;
  Router router;
  std::unique_ptr<WorkerPool> pool;
  ConnectionSet connections;
  std::atomic<bool> stopping{false};
  SessionShared shared;
  std::atomic<bool> running{false};
  std::mutex mu;
  std::condition_variable stop_cv;
  bool stop_requested = false;  // guarded by mu
  // Last, so destroyed first: a connection's coroutine, destroyed with the
  // context, still refers to the members above.
  std::vector<std::unique_ptr<asio::io_context>> ios;
  tcp::acceptor acceptor;
};

HttpServer::HttpServer(ServerState& state, HttpOptions options)
    : impl_(std::make_unique<Impl>(state, std::move(options))) {
  data::SetStatementTimeout(impl_->options.db_timeout);
  state.secure_cookie = !impl_->options.tls_cert.empty();
}

HttpServer::~HttpServer() { Stop(); }

int HttpServer::Bind(std::string& error) {
  const HttpOptions& o = impl_->options;
  if (!o.tls_cert.empty() || !o.tls_key.empty()) {
    impl_->tls = LoadTlsContext(o.tls_cert, o.tls_key, error);
    if (!impl_->tls) return -1;
  }
  boost::system::error_code ec;
  tcp::resolver resolver(*impl_->ios.front());
  auto endpoints = resolver.resolve(o.host, std::to_string(o.port), tcp::resolver::passive, ec);
  tcp::acceptor& acceptor = impl_->acceptor;
  if (!ec) {
    tcp::endpoint endpoint = *endpoints.begin();
    acceptor.open(endpoint.protocol(), ec);
    // SO_REUSEADDR alone: a restart can listen again at once, but a port
    // another server is listening on is refused, never shared (SO_REUSEPORT).
    if (!ec) acceptor.set_option(tcp::acceptor::reuse_address(true), ec);
    if (!ec) acceptor.bind(endpoint, ec);
    if (!ec) acceptor.listen(asio::socket_base::max_listen_connections, ec);
  }
  if (ec) {
    error = "cannot listen on " + o.host + ":" + std::to_string(o.port) + ": " +
            (ec.category() == boost::system::system_category() ? std::strerror(ec.value()) : ec.message());
    acceptor.close(ec);
    return -1;
  }
  return acceptor.local_endpoint().port();
}

bool HttpServer::Run() {
  Impl& s = *impl_;
  if (!s.acceptor.is_open()) return false;
  asio::co_spawn(s.acceptor.get_executor(), s.Listen(), asio::detached);
  std::vector<asio::executor_work_guard<asio::io_context::executor_type>> work;
  std::vector<std::thread> threads;
  for (auto& io : s.ios) {
    work.push_back(asio::make_work_guard(*io));
    threads.emplace_back([&io] { io->run(); });
  }
  s.running = true;
  {
    std::unique_lock lock(s.mu);
    s.stop_cv.wait(lock, [&s] { return s.stop_requested; });
  }
  // No new connection is taken; idle ones close; the requests in flight
  // finish and send their answers.
  bool finished = s.connections.WaitEmpty(s.options.limits.shutdown_grace);
  for (auto& io : s.ios) io->stop();
  for (auto& t : threads) t.join();
  if (finished) {
    s.pool->Join();
  } else {
    // A handler still runs on a worker; the caller ends the process.
    [[maybe_unused]] WorkerPool* left = s.pool.release();
  }
  s.running = false;
  return finished;
}

void HttpServer::Stop() {
  Impl& s = *impl_;
  if (s.stopping.exchange(true)) return;
  asio::post(s.acceptor.get_executor(), [&s] {
    boost::system::error_code ignored;
    s.acceptor.close(ignored);
  });
  s.connections.CancelReads();
  {
    std::lock_guard lock(s.mu);
    s.stop_requested = true;
  }
  s.stop_cv.notify_all();
}

bool HttpServer::IsRunning() const { return impl_->running; }

}  // namespace orvane
