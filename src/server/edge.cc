#include "server/edge.h"

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/epoll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "server/edge_connection.h"
#include "server/tls_channel.h"

namespace orvane {
namespace {

// After a refusal, what the client still sends is read and dropped for a
// while, so closing does not reset the connection before the answer is read.
constexpr auto kLinger = std::chrono::seconds(2);
constexpr size_t kLingerBytes = size_t{1} << 20;
constexpr auto kTick = std::chrono::milliseconds(100);  // how often deadlines are looked at

// httplib hands each accepted socket to its task queue; ours passes it on
// to the edge at once, on the accepting thread.
class HandOver : public httplib::TaskQueue {
 public:
  void enqueue(std::function<void()> fn) override { fn(); }
  void shutdown() override {}
};

long long MicrosSince(EdgeClock::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(EdgeClock::now() - start).count();
}

}  // namespace

EdgeServer::EdgeServer(EdgeLimits limits, int threads, AccessLog& log)
    : limits_(limits), log_(log), threads_(threads > 0 ? threads : 1) {
  new_task_queue = [] { return new HandOver; };
  epoll_fd_ = ::epoll_create1(EPOLL_CLOEXEC);
  wake_fd_ = ::eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC);
  epoll_event ev{};
  ev.events = EPOLLIN;
  ev.data.fd = wake_fd_;
  ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, wake_fd_, &ev);
}

EdgeServer::~EdgeServer() {
  stop_edge_ = true;
  Wake();
  if (edge_thread_.joinable()) edge_thread_.join();
  {
    std::lock_guard lock(jobs_mu_);
    stop_workers_ = true;
  }
  jobs_cv_.notify_all();
  for (auto& w : workers_)
    if (w.joinable()) w.join();
  for (int fd : accepted_) ::close(fd);
  ::close(wake_fd_);
  ::close(epoll_fd_);
}

void EdgeServer::SetBacklog(int backlog) { ::listen(svr_sock_, backlog); }

bool EdgeServer::Serve() {
  edge_thread_ = std::thread([this] { EdgeLoop(); });
  for (int i = 0; i < threads_; ++i) workers_.emplace_back([this] { WorkerLoop(); });
  bool listened = listen_after_bind();  // until stop()

  // No new connection is taken; idle ones close; the requests in flight
  // finish and send their answers.
  draining_ = true;
  Wake();
  bool finished;
  {
    std::unique_lock lock(jobs_mu_);
    finished = idle_cv_.wait_for(lock, limits_.shutdown_grace, [this] { return in_flight_ == 0; });
    stop_workers_ = true;
  }
  jobs_cv_.notify_all();
  stop_edge_ = true;
  Wake();
  edge_thread_.join();
  if (finished) {
    for (auto& w : workers_) w.join();
  } else {
    for (auto& w : workers_) w.detach();  // the caller ends the process
  }
  workers_.clear();
  return listened && finished;
}

bool EdgeServer::process_and_close_socket(socket_t sock) {
  {
    std::lock_guard lock(queue_mu_);
    accepted_.push_back(sock);
  }
  Wake();
  return true;
}

void EdgeServer::Wake() {
  uint64_t one = 1;
  [[maybe_unused]] ssize_t n = ::write(wake_fd_, &one, sizeof one);  // a full counter already wakes
}

void EdgeServer::EdgeLoop() {
  epoll_event events[64];
  auto next_tick = EdgeClock::now() + kTick;
  while (!stop_edge_) {
    int n = ::epoll_wait(epoll_fd_, events, 64, static_cast<int>(kTick.count()));
    for (int i = 0; i < n; ++i) {
      if (events[i].data.fd == wake_fd_) {
        uint64_t count;
        [[maybe_unused]] ssize_t r = ::read(wake_fd_, &count, sizeof count);
        TakeQueued();
      } else {
        HandleIo(events[i].data.fd, events[i].events);
      }
    }
    if (draining_ && !drained_) StartDraining();
    if (EdgeClock::now() >= next_tick) {
      TakeQueued();  // connections a worker gave back without a wake
      ExpireDeadlines();
      next_tick = EdgeClock::now() + kTick;
    }
  }
  TakeQueued();
  std::vector<int> fds;
  for (auto& [fd, conn] : conns_) fds.push_back(fd);
  for (int fd : fds) Close(fd);
}

void EdgeServer::TakeQueued() {
  std::vector<int> accepted;
  std::vector<std::unique_ptr<EdgeConnection>> returned;
  {
    std::lock_guard lock(queue_mu_);
    accepted.swap(accepted_);
    returned.swap(returned_);
  }
  for (int fd : accepted) Adopt(fd);
  for (auto& conn : returned) {
    int fd = conn->channel->fd();
    if (draining_ || stop_edge_) {
      conn.reset();
      --open_;
      continue;
    }
    bool pipelined = !conn->in.empty();
    bool buffered = conn->channel->Buffered();  // bytes no event will announce
    conns_[fd] = std::move(conn);
    if (buffered) {
      HandleIo(fd, EPOLLIN);
    } else if (pipelined && Advance(fd)) {
      Watch(*conns_[fd], false);  // else the worker armed it
    }
  }
}

void EdgeServer::Adopt(int fd) {
  auto conn = std::make_unique<EdgeConnection>();
  conn->channel = tls_ ? tls_->Accept(fd) : PlainSocket(fd);
  if (draining_ || stop_edge_) return;  // closed with the channel
  int yes = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);  // answers are small
  Address(fd, true, conn->client_ip, conn->client_port);
  Address(fd, false, conn->local_ip, conn->local_port);
  conn->started = EdgeClock::now();
  if (open_ >= limits_.max_connections) {
    // Told at once, without reading: the client may try again later.
    log_.Write({conn->client_ip, "-", "-", "", 503, 0, "Service Unavailable", false, {}});
    if (tls_) return;  // no words before a handshake: only closed
    static constexpr char kBusy[] =
        "HTTP/1.1 503 Service Unavailable\r\nContent-Length: 0\r\nRetry-After: 1\r\nConnection: close\r\n\r\n";
    [[maybe_unused]] ssize_t r = conn->channel->Write(kBusy, sizeof kBusy - 1);
    return;
  }
  ++open_;
  conn->deadline = conn->started + limits_.header_timeout;
  if (tls_) conn->phase = EdgeConnection::Phase::kOpening;
  conns_[fd] = std::move(conn);
  epoll_event ev{};
  ev.events = EPOLLIN | EPOLLONESHOT;
  ev.data.fd = fd;
  ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, fd, &ev);
}

void EdgeServer::Watch(EdgeConnection& c, bool writable) {
  epoll_event ev{};
  // One-shot: a connection handed to a worker needs no removal, and the
  // worker arms it again when it gives it back.
  ev.events = EPOLLIN | EPOLLONESHOT | (writable || c.channel->WaitsToWrite(false) ? EPOLLOUT : 0u);
  ev.data.fd = c.channel->fd();
  if (::epoll_ctl(epoll_fd_, EPOLL_CTL_MOD, ev.data.fd, &ev) != 0)
    ::epoll_ctl(epoll_fd_, EPOLL_CTL_ADD, ev.data.fd, &ev);
}

void EdgeServer::HandleIo(int fd, uint32_t events) {
  if (!conns_.count(fd)) TakeQueued();  // given back by a worker, not yet taken
  if (!conns_.count(fd)) return;
  ReadOrDrop(fd, events);
  if (auto it = conns_.find(fd); it != conns_.end()) Watch(*it->second, !it->second->out.empty());
}

void EdgeServer::ReadOrDrop(int fd, uint32_t events) {
  EdgeConnection& c = *conns_.at(fd);
  char buf[16384];  // a whole TLS record: nothing stays buffered in the channel
  if (c.phase == EdgeConnection::Phase::kOpening) {
    ByteChannel::Setup setup = c.channel->Open();
    if (setup == ByteChannel::Setup::kAgain) return;
    // A failed handshake (plain HTTP on the TLS port, say) gets no answer:
    // there is no channel to say anything on.
    if (setup == ByteChannel::Setup::kFailed) return Close(fd);
    c.phase = EdgeConnection::Phase::kWaiting;
    c.opened = true;  // the request may have come with the handshake's last flight: read on
  }
  if (c.phase == EdgeConnection::Phase::kClosing) {
    if (events & EPOLLOUT) Flush(c);
    if (!(events & (EPOLLIN | EPOLLHUP | EPOLLERR))) return;
    ssize_t n = c.channel->Read(buf, sizeof buf);
    if (n > 0) c.dropped += static_cast<size_t>(n);
    if (n == 0 || (n < 0 && errno != EAGAIN && errno != EINTR) || c.dropped > kLingerBytes) Close(fd);
    return;
  }
  for (;;) {
    if (c.phase == EdgeConnection::Phase::kBody && c.in.size() >= c.head.head_bytes + c.head.body_bytes) return;
    ssize_t n = c.channel->Read(buf, sizeof buf);
    if (n < 0 && (errno == EAGAIN || errno == EINTR)) return;
    if (n <= 0) {  // the client left; a half-sent request gets no answer
      Close(fd);
      return;
    }
    c.in.append(buf, static_cast<size_t>(n));
    if (!Advance(fd)) return;
  }
}

bool EdgeServer::Advance(int fd) {
  EdgeConnection& c = *conns_.at(fd);
  auto now = EdgeClock::now();
  if (c.phase == EdgeConnection::Phase::kWaiting) {
    if (c.in.empty()) return true;
    c.phase = EdgeConnection::Phase::kHead;
    if (c.opened) {
      c.opened = false;  // the handshake counted against this head's deadline
    } else {
      c.started = now;
      c.deadline = now + limits_.header_timeout;
    }
  }
  if (c.phase == EdgeConnection::Phase::kHead) {
    c.head = ScanHead(c.in, limits_);
    if (c.head.state == HeadScan::State::kPartial) return true;
    if (c.head.state == HeadScan::State::kRefused) {
      Refuse(c, c.head.status, c.head.method, c.head.path);
      return false;
    }
    c.phase = EdgeConnection::Phase::kBody;
    c.deadline = now + limits_.body_timeout;
  }
  if (c.in.size() < c.head.head_bytes + c.head.body_bytes) return true;
  Dispatch(fd);
  return false;
}

void EdgeServer::Dispatch(int fd) {
  EdgeConnection& c = *conns_.at(fd);
  // Refused rather than queued without bound: the client may come back.
  if (draining_ || in_flight_ >= limits_.max_requests) return Refuse(c, 503, c.head.method, c.head.path);
  ++in_flight_;  // the one-shot event that brought the request disarmed the descriptor
  Job job{std::move(conns_.at(fd)), {}};
  conns_.erase(fd);
  size_t size = job.conn->head.head_bytes + job.conn->head.body_bytes;
  job.request = ForUncompressedAnswer(std::string_view(job.conn->in).substr(0, size), job.conn->head.head_bytes);
  job.conn->in.erase(0, size);  // what follows is the next request's
  if (job.conn->in.capacity() > 65536) job.conn->in.shrink_to_fit();
  {
    std::lock_guard lock(jobs_mu_);
    jobs_.push_back(std::move(job));
  }
  jobs_cv_.notify_one();
}

void EdgeServer::Refuse(EdgeConnection& c, int status, std::string method, std::string path) {
  std::string body = RefusalReason(status);
  c.out = "HTTP/1.1 " + std::to_string(status) + " " + body +
          "\r\nContent-Type: text/plain; charset=utf-8\r\nContent-Length: " + std::to_string(body.size()) +
          "\r\nCache-Control: no-store\r\nConnection: close\r\n";
  if (status == 503) c.out += "Retry-After: 1\r\n";
  c.out += "\r\n" + body;
  log_.Write({c.client_ip, method.empty() ? "-" : method, path.empty() ? "-" : path, "", status,
              MicrosSince(c.started), body, false, {}});
  c.phase = EdgeConnection::Phase::kClosing;
  c.deadline = EdgeClock::now() + kLinger;
  c.in.clear();
  c.in.shrink_to_fit();  // a refused head's bytes are not kept
  Watch(c, true);
  Flush(c);
}

void EdgeServer::Flush(EdgeConnection& c) {
  if (c.out.empty()) return;
  ssize_t n = c.channel->Write(c.out.data(), c.out.size());
  if (n > 0) c.out.erase(0, static_cast<size_t>(n));
  if (c.out.empty()) {
    c.channel->ShutdownWrite();
    Watch(c, false);
  }
}

void EdgeServer::Close(int fd) {
  conns_.erase(fd);  // the channel closes the socket, which leaves the epoll set
  --open_;
}

void EdgeServer::ExpireDeadlines() {
  auto now = EdgeClock::now();
  std::vector<int> expired;
  for (auto& [fd, conn] : conns_)
    if (conn->deadline <= now) expired.push_back(fd);
  for (int fd : expired) {
    EdgeConnection& c = *conns_.at(fd);
    if (c.phase == EdgeConnection::Phase::kHead || c.phase == EdgeConnection::Phase::kBody) {
      Refuse(c, 408, c.head.method, c.head.path);
    } else {
      Close(fd);  // an idle connection, or a refusal's linger ended
    }
  }
}

void EdgeServer::StartDraining() {
  drained_ = true;
  std::vector<int> fds;
  for (auto& [fd, conn] : conns_) fds.push_back(fd);
  for (int fd : fds) {
    EdgeConnection& c = *conns_.at(fd);
    if (c.phase == EdgeConnection::Phase::kWaiting || c.phase == EdgeConnection::Phase::kOpening) {
      Close(fd);
    } else if (c.phase != EdgeConnection::Phase::kClosing) {
      Refuse(c, 503, c.head.method, c.head.path);  // half received: told to come back
    }
  }
}

void EdgeServer::WorkerLoop() {
  for (;;) {
    Job job;
    {
      std::unique_lock lock(jobs_mu_);
      jobs_cv_.wait(lock, [this] { return !jobs_.empty() || stop_workers_; });
      if (jobs_.empty()) return;
      job = std::move(jobs_.front());
      jobs_.pop_front();
    }
    ServeRequest(std::move(job));
  }
}

void EdgeServer::ServeRequest(Job job) {
  EdgeConnection& c = *job.conn;
  RequestStream stream(c, job.request, EdgeClock::now() + limits_.write_timeout);
  bool last = draining_ || ++c.served >= keep_alive_max_count_;
  bool client_closes = false;
  // The edge has read the whole body already: no 100 Continue to send.
  bool ok = process_request(stream, last, client_closes, [](httplib::Request& req) { req.headers.erase("Expect"); });
  if (ok && !last && !client_closes && !stream.broken() && !draining_) {
    c.phase = EdgeConnection::Phase::kWaiting;
    c.deadline = EdgeClock::now() + limits_.idle_timeout;
    c.head = {};
    bool pipelined = !c.in.empty() || c.channel->Buffered();
    epoll_event ev{};
    ev.events = EPOLLIN | EPOLLONESHOT;
    ev.data.fd = c.channel->fd();
    {
      std::lock_guard lock(queue_mu_);
      returned_.push_back(std::move(job.conn));
    }
    // The next request's bytes wake the edge; only one already here needs
    // a wake of its own.
    if (pipelined) {
      Wake();
    } else {
      ::epoll_ctl(epoll_fd_, EPOLL_CTL_MOD, ev.data.fd, &ev);
    }
  } else {
    job.conn.reset();
    --open_;
  }
  {
    std::lock_guard lock(jobs_mu_);
    --in_flight_;
  }
  idle_cv_.notify_all();
}

}  // namespace orvane
