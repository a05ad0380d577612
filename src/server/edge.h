// The HTTP edge in front of httplib's request handling. httplib 0.11.4 as
// Debian builds it bounds neither the header count nor a request's total
// time, and gives each connection a worker for as long as the client
// likes; so accepted sockets go to one edge thread instead, which reads
// each request whole (head, then a body of announced length) under the
// limits of EdgeLimits, answers what breaks them itself (414, 431, 413,
// 411, 408, 503) and hands only complete requests to the worker pool. A
// worker runs httplib's process_request over the buffered bytes and
// writes the answer with a deadline; a kept-alive connection then goes
// back to the edge to wait for its next request, so an idle or slow
// client never holds a worker.
#pragma once

#include <httplib.h>

#include <atomic>
#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <unordered_map>
#include <vector>

#include "server/access_log.h"
#include "server/edge_limits.h"

namespace orvane {

struct EdgeConnection;
class TlsContext;

class EdgeServer : public httplib::Server {
 public:
  EdgeServer(EdgeLimits limits, int threads, AccessLog& log);
  ~EdgeServer() override;

  // After a bind: how many connections the kernel may queue before accept.
  void SetBacklog(int backlog);
  // Before Serve: every connection speaks TLS with this context.
  void UseTls(std::shared_ptr<const TlsContext> tls) { tls_ = std::move(tls); }
  // Serves until stop(), then lets the requests in flight finish and send
  // their answers (within the grace period). False when listening failed
  // or a request was still running at the end of the grace period.
  bool Serve();
  // Requests handed to workers and not yet answered.
  size_t InFlight() const { return in_flight_.load(); }

 private:
  struct Job {
    std::unique_ptr<EdgeConnection> conn;
    std::string request;  // one request's bytes: head and body
  };

  bool process_and_close_socket(socket_t sock) override;  // on the accepting thread

  // Edge thread.
  void EdgeLoop();
  void TakeQueued();
  void Adopt(int fd);
  void Watch(EdgeConnection& c, bool writable);
  void HandleIo(int fd, uint32_t events);
  void ReadOrDrop(int fd, uint32_t events);
  bool Advance(int fd);  // false: the connection left the reading phases
  void Dispatch(int fd);
  void Refuse(EdgeConnection& c, int status, std::string method, std::string path);
  void Flush(EdgeConnection& c);
  void Close(int fd);
  void ExpireDeadlines();
  void StartDraining();

  // Workers.
  void WorkerLoop();
  void ServeRequest(Job job);
  void Wake();

  const EdgeLimits limits_;
  AccessLog& log_;
  std::shared_ptr<const TlsContext> tls_;
  int epoll_fd_ = -1;
  int wake_fd_ = -1;
  std::unordered_map<int, std::unique_ptr<EdgeConnection>> conns_;  // edge thread only
  bool drained_ = false;                                            // edge thread only

  std::mutex queue_mu_;  // what other threads hand to the edge
  std::vector<int> accepted_;
  std::vector<std::unique_ptr<EdgeConnection>> returned_;

  std::atomic<bool> draining_{false};
  std::atomic<bool> stop_edge_{false};
  std::atomic<size_t> open_{0};
  std::atomic<size_t> in_flight_{0};

  std::mutex jobs_mu_;
  std::condition_variable jobs_cv_;  // a job, or the end
  std::condition_variable idle_cv_;  // in_flight_ fell
  std::deque<Job> jobs_;
  bool stop_workers_ = false;

  int threads_;
  std::vector<std::thread> workers_;
  std::thread edge_thread_;
};

// A POST route whose handler reads the whole body, whatever its type:
// httplib refuses an url-encoded form body over 8 KB when it reads the body
// itself, and only a route with a content reader escapes that. The edge
// has bounded the body already (EdgeLimits::max_body).
void PostWithWholeBody(httplib::Server& server, const std::string& pattern, httplib::Server::Handler handler);

}  // namespace orvane
