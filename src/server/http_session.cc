#include "server/http_session.h"

#include <algorithm>
#include <boost/asio/as_tuple.hpp>
#include <boost/asio/ssl/stream.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/asio/this_coro.hpp>
#include <boost/asio/use_awaitable.hpp>
#include <boost/beast/core/error.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/core/stream_traits.hpp>
#include <boost/beast/http.hpp>
#include <chrono>

#include "dispatch/request_fields.h"

namespace orvane {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
using boost::system::error_code;
using tcp = asio::ip::tcp;
using Clock = std::chrono::steady_clock;
constexpr auto kTuple = asio::as_tuple(asio::use_awaitable);

// A header line longer than this is refused (431) whatever the head's limit.
constexpr size_t kMaxFieldBytes = 8000;
constexpr size_t kMaxRequestsPerConnection = 1000;
// After a refusal or a closing answer, what the client still sends is read
// and dropped for a while, so that closing does not reset the connection
// before the answer is read.
constexpr auto kLinger = std::chrono::seconds(2);
constexpr size_t kLingerBytes = size_t{1} << 20;

long long MicrosSince(Clock::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(Clock::now() - start).count();
}

// The target's path, percent-decoded ("+" stays a plus in a path).
std::string PathOf(std::string_view target) {
  std::string raw(target.substr(0, target.find('?')));
  for (size_t plus; (plus = raw.find('+')) != std::string::npos;) raw.replace(plus, 1, "%2B");
  return PercentDecode(raw);
}

class BeastRequest final : public HttpRequest {
 public:
  BeastRequest(http::request<http::string_body>&& message, const std::string& client) : message_(std::move(message)) {
    method = std::string(message_.method_string());
    target = std::string(message_.target());
    path = PathOf(target);
    body = std::move(message_.body());
    remote_address = client;
  }
  std::string Header(std::string_view name) const override {
    auto it = message_.find(name);
    return it == message_.end() ? std::string() : std::string(it->value());
  }
  const http::request<http::string_body>& message() const { return message_; }

 private:
  http::request<http::string_body> message_;  // the head; its body moved out
};

// The status that answers a failed read of a request's head or body (some
// of it received); 0: none (the client left).
int RefusalFor(const error_code& ec, const beast::flat_buffer& unread) {
  if (ec == beast::error::timeout) return 408;
  if (ec == http::error::header_limit) return 431;
  if (ec == http::error::body_limit) return 413;
  if (ec == http::error::bad_content_length) {
    // A length past 64 bits is a length past the limit; the unread bytes
    // begin with the Content-Length line the parser refused.
    std::string_view rest(static_cast<const char*>(unread.data().data()), unread.size());
    std::string_view value = rest.substr(0, rest.find('\r'));
    value.remove_prefix(std::min(value.size(), value.find(':') + 1));
    while (value.starts_with(' ')) value.remove_prefix(1);
    bool digits = value.size() > 19 && value.find_first_not_of("0123456789") == std::string_view::npos;
    return digits ? 413 : 400;
  }
  if (ec == asio::error::operation_aborted) return 503;  // the server stops: come back
  if (ec == http::error::end_of_stream || ec == asio::error::eof || ec == asio::error::connection_reset ||
      ec == http::error::partial_message || ec.category() == asio::error::get_ssl_category() ||
      ec == asio::ssl::error::stream_truncated)
    return 0;
  return 400;
}

// The first word the client sent, for the log of a request line that could
// not be read.
std::string FirstWord(const beast::flat_buffer& unread) {
  std::string_view rest(static_cast<const char*>(unread.data().data()), unread.size());
  return std::string(rest.substr(0, std::min<size_t>(rest.find_first_of(" \r\n"), 32)));
}

template <class Stream>
class Connection {
 public:
  template <class... StreamArgs>
  Connection(SessionShared& shared, std::shared_ptr<ConnectionSet::Entry> entry, std::string client,
             StreamArgs&&... stream_args)
      : stream_(std::forward<StreamArgs>(stream_args)...),
        shared_(shared),
        limits_(shared.limits),
        entry_(std::move(entry)),
        client_(std::move(client)),
        deadline_(stream_.get_executor()) {
    entry_->socket = &beast::get_lowest_layer(stream_);
  }
  ~Connection() { shared_.connections.Remove(entry_); }

  asio::awaitable<void> Serve() {
    if constexpr (kTls) {
      // A client that does not speak TLS is closed without a word: there
      // is no channel to say anything on.
      auto [ec] =
          co_await Timed(stream_.async_handshake(asio::ssl::stream_base::server, kTuple), limits_.header_timeout);
      if (ec) co_return;
    }
    for (size_t served = 0; served < kMaxRequestsPerConnection; ++served) {
      // Waiting for the next request's first byte: an idle connection ends
      // quietly at its timeout (the first request has the head's).
      if (buffer_.size() == 0) {
        if (served > 0) buffer_.shrink_to_fit();  // an idle connection holds no buffer
        auto [ec, n] = co_await Read(stream_.async_read_some(buffer_.prepare(4096), kTuple),
                                     served == 0 ? limits_.header_timeout : limits_.idle_timeout);
        if (ec) co_return;
        buffer_.commit(n);
      }
      const Clock::time_point started = Clock::now();

      // The head, then the body, each within its deadline and the parser's limits.
      http::request_parser<http::string_body> parser;
      parser.header_limit(static_cast<uint32_t>(limits_.max_header_bytes));
      // Until the head names the route, the largest body any route takes.
      parser.body_limit(shared_.router.LargestBody(limits_.max_body));
      auto [ec, n] = co_await Read(http::async_read_header(stream_, buffer_, parser, kTuple), limits_.header_timeout);
      int refusal = ec ? RefusalFor(ec, buffer_) : RefusalForHead(parser.get());
      if (!ec && !refusal) refusal = RefusalForLength(parser);
      if (!ec && !refusal && parser.get()[http::field::expect] == "100-continue") {
        http::response<http::empty_body> go_on{http::status::continue_, parser.get().version()};
        std::tie(ec, n) = co_await Timed(http::async_write(stream_, go_on, kTuple), limits_.write_timeout);
        if (ec) co_return;
      }
      if (!ec && !refusal && !parser.is_done()) {
        std::tie(ec, n) = co_await Read(http::async_read(stream_, buffer_, parser, kTuple), limits_.body_timeout);
        if (ec) refusal = RefusalFor(ec, buffer_);
      }
      if (refusal) co_return co_await Refuse(refusal, parser.get(), started);
      if (ec) co_return;  // the client left mid-request: no one to answer

      // One of a bounded number of requests in flight, or told to come back.
      WorkerPool::Ticket ticket = shared_.pool.Admit();
      if (!ticket || shared_.stopping) co_return co_await Refuse(503, parser.get(), started);
      BeastRequest request(parser.release(), client_);
      HttpResponse response;
      const Router::Route& route = shared_.router.Find(request.method, request.path);
      if (route.run_on == Router::RunOn::kIoThread) {
        Answer(route, request, response);
      } else {
        co_await shared_.pool.Run([&] { Answer(route, request, response); });
      }

      const bool keep = request.message().keep_alive() && !shared_.stopping && served + 1 < kMaxRequestsPerConnection;
      http::response<http::string_body> message = Message(request, std::move(response), keep);
      std::tie(ec, n) = co_await Timed(http::async_write(stream_, message, kTuple), limits_.write_timeout);
      if (ec) co_return;  // a client that does not take its answer in time is dropped
      if (!keep) break;
    }
    co_await Linger();
  }

 private:
  static constexpr bool kTls = !std::is_same_v<Stream, tcp::socket>;

  // `op` (an awaitable of {error_code, size_t} or {error_code}), or
  // beast::error::timeout when `limit` passes first: the deadline cancels
  // what the socket is doing, and the socket stays open to answer.
  template <class Op>
  asio::awaitable<typename Op::value_type> Timed(Op op, std::chrono::milliseconds limit) {
    const uint64_t operation = ++operation_;
    bool expired = false;
    deadline_.expires_after(limit);
    deadline_.async_wait([this, entry = entry_, operation, &expired](const error_code& ec) {
      // Runs on the connection's I/O thread; an expiry queued just as the
      // operation finished, or after the connection ended, does nothing.
      if (ec || !entry->open || operation != operation_) return;
      expired = true;
      error_code ignored;
      beast::get_lowest_layer(stream_).cancel(ignored);
    });
    typename Op::value_type result = co_await std::move(op);
    ++operation_;
    deadline_.cancel();
    if (expired) std::get<0>(result) = beast::error::timeout;
    co_return result;
  }

  // A read that a stop may cancel; none starts once the server stops.
  template <class Op>
  asio::awaitable<typename Op::value_type> Read(Op op, std::chrono::milliseconds limit) {
    if (shared_.stopping) co_return typename Op::value_type{asio::error::operation_aborted, 0};
    entry_->reading = true;
    auto result = co_await Timed(std::move(op), limit);
    entry_->reading = false;
    co_return result;
  }

  // The limits the parser has no setting for: a header line's length, the
  // number of header lines, the request line's length; and a body that
  // announces no length.
  int RefusalForHead(const http::request<http::string_body>& head) const {
    size_t count = 0;
    for (const auto& field : head) {
      if (field.name_string().size() + field.value().size() + 2 > kMaxFieldBytes) return 431;
      ++count;
    }
    if (count > limits_.max_headers) return 431;
    if (head.method_string().size() + head.target().size() + 10 > limits_.max_request_line) return 414;
    if (head.chunked()) return 411;
    return 0;
  }

  // The route's own body limit (the edge's for most): a longer
  // Content-Length is refused before its body is read.
  int RefusalForLength(const http::request_parser<http::string_body>& parser) const {
    const auto& head = parser.get();
    const Router::Route& route = shared_.router.Find(std::string(head.method_string()), PathOf(head.target()));
    return parser.content_length().value_or(0) > route.max_body.value_or(limits_.max_body) ? 413 : 0;
  }

  void Answer(const Router::Route& route, const HttpRequest& request, HttpResponse& response) const {
    try {
      route.handler(request, response);
    } catch (...) {
      response = {};
      response.status = 500;
      response.SetContent("ERROR:INTERNAL", "text/plain; charset=utf-8");
    }
  }

  static http::response<http::string_body> Message(const BeastRequest& request, HttpResponse&& response, bool keep) {
    http::response<http::string_body> message{static_cast<http::status>(response.status), request.message().version()};
    for (auto& [name, value] : response.headers) message.insert(name, value);
    message.body() = std::move(response.body);
    message.keep_alive(keep);
    message.prepare_payload();
    if (request.message().method() == http::verb::head) message.body().clear();  // the length stays announced
    return message;
  }

  // Answers `status` itself, logs it, and ends the connection.
  asio::awaitable<void> Refuse(int status, const http::request<http::string_body>& head, Clock::time_point started) {
    std::string method(head.method_string()), path = PathOf(head.target());
    if (method.empty()) method = FirstWord(buffer_);
    http::response<http::string_body> message{static_cast<http::status>(status), 11};
    std::string reason(http::obsolete_reason(message.result()));
    message.set(http::field::content_type, "text/plain; charset=utf-8");
    message.set(http::field::cache_control, "no-store");
    if (status == 503) message.set(http::field::retry_after, "1");
    message.keep_alive(false);
    message.body() = reason;
    message.prepare_payload();
    shared_.state.access_log.Write({client_,
                                    method.empty() ? "-" : method,
                                    path.empty() ? "-" : path,
                                    "",
                                    status,
                                    MicrosSince(started),
                                    reason,
                                    false,
                                    {}});
    auto [ec, n] = co_await Timed(http::async_write(stream_, message, kTuple), limits_.write_timeout);
    if (!ec) co_await Linger();
  }

  // Our side is closed; what the client still sends is dropped until it
  // closes too, for a while.
  asio::awaitable<void> Linger() {
    error_code ignored;
    beast::get_lowest_layer(stream_).shutdown(tcp::socket::shutdown_send, ignored);
    buffer_.clear();
    buffer_.shrink_to_fit();
    char drop[16384];
    for (size_t dropped = 0; dropped < kLingerBytes;) {
      auto [ec, n] = co_await Read(stream_.async_read_some(asio::buffer(drop), kTuple), kLinger);
      if (ec) break;
      dropped += n;
    }
  }

  Stream stream_;
  SessionShared& shared_;
  const EdgeLimits& limits_;
  std::shared_ptr<ConnectionSet::Entry> entry_;
  std::string client_;
  asio::steady_timer deadline_;
  uint64_t operation_ = 0;     // which timed operation the deadline belongs to
  beast::flat_buffer buffer_;  // received, not yet parsed: the next request's bytes
};

std::string AddressOf(const tcp::socket& socket) {
  error_code ec;
  tcp::endpoint peer = socket.remote_endpoint(ec);
  return ec ? std::string() : peer.address().to_string();
}

}  // namespace

asio::awaitable<void> ServeConnection(tcp::socket socket, asio::ssl::context* tls, SessionShared& shared) {
  error_code ignored;
  socket.set_option(tcp::no_delay(true), ignored);  // answers are small
  std::string client = AddressOf(socket);
  std::shared_ptr<ConnectionSet::Entry> entry =
      shared.connections.TryAdd(socket.get_executor(), shared.limits.max_connections);
  if (!entry) {
    // Told at once, without reading: the client may try again later.
    shared.state.access_log.Write({client, "-", "-", "", 503, 0, "Service Unavailable", false, {}});
    if (tls) co_return;  // no words before a handshake: only closed
    http::response<http::empty_body> busy{http::status::service_unavailable, 11};
    busy.set(http::field::retry_after, "1");
    busy.keep_alive(false);
    busy.prepare_payload();
    co_await http::async_write(socket, busy, kTuple);
    co_return;
  }
  try {
    if (tls) {
      Connection<asio::ssl::stream<tcp::socket>> connection(shared, entry, client, std::move(socket), *tls);
      co_await connection.Serve();
    } else {
      Connection<tcp::socket> connection(shared, entry, client, std::move(socket));
      co_await connection.Serve();
    }
  } catch (const std::exception&) {
    // A connection's failure ends that connection only.
  }
}

}  // namespace orvane
