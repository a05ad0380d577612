// One client connection's life (Boost.Beast over Asio): read a request
// under the limits and deadlines, hand it to its route (on the worker pool
// when it may wait), write the answer, keep the connection for the next
// one, close. Started by the listener (http_server.cc) for each accepted
// socket; knows nothing of what the routes do.
#pragma once

#include <atomic>
#include <boost/asio/awaitable.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/ssl/context.hpp>

#include "server/connection_set.h"
#include "server/edge_limits.h"
#include "server/router.h"
#include "server/server_state.h"
#include "server/worker_pool.h"

namespace orvane {

// What every connection of one server shares.
struct SessionShared {
  ServerState& state;
  const Router& router;
  const EdgeLimits& limits;
  WorkerPool& pool;
  ConnectionSet& connections;
  const std::atomic<bool>& stopping;  // no new request is read; answers close their connection
};

// Serves `socket` (on its I/O thread) until the client leaves, a deadline
// passes or the server stops; with `tls`, over TLS. Past the connection
// cap the client is told 503 at once (plain HTTP) or only closed (TLS).
boost::asio::awaitable<void> ServeConnection(boost::asio::ip::tcp::socket socket, boost::asio::ssl::context* tls,
                                             SessionShared& shared);

}  // namespace orvane
