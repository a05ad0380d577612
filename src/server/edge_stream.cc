#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "server/edge.h"
#include "server/edge_connection.h"

namespace orvane {
namespace {

class PlainSocketChannel : public ByteChannel {
 public:
  explicit PlainSocketChannel(int fd) : fd_(fd) { ::fcntl(fd_, F_SETFL, ::fcntl(fd_, F_GETFL) | O_NONBLOCK); }
  ~PlainSocketChannel() override { ::close(fd_); }
  ssize_t Read(char* data, size_t size) override { return ::recv(fd_, data, size, 0); }
  ssize_t Write(const char* data, size_t size) override { return ::send(fd_, data, size, MSG_NOSIGNAL); }
  void ShutdownWrite() override { ::shutdown(fd_, SHUT_WR); }
  int fd() const override { return fd_; }

 private:
  int fd_;
};

}  // namespace

std::unique_ptr<ByteChannel> PlainSocket(int fd) { return std::make_unique<PlainSocketChannel>(fd); }

ssize_t RequestStream::read(char* ptr, size_t size) {
  size_t n = std::min(size, request_.size() - pos_);
  std::memcpy(ptr, request_.data() + pos_, n);
  pos_ += n;
  return static_cast<ssize_t>(n);  // 0 at the end of this request: the next one stays with the edge
}

ssize_t RequestStream::write(const char* ptr, size_t size) {
  size_t done = 0;
  while (!broken_ && done < size) {
    ssize_t n = conn_.channel->Write(ptr + done, size - done);
    if (n > 0) {
      done += static_cast<size_t>(n);
      continue;
    }
    if (n < 0 && errno == EINTR) continue;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline_ - EdgeClock::now()).count();
    pollfd p{conn_.channel->fd(), static_cast<short>(conn_.channel->WaitsToWrite(true) ? POLLOUT : POLLIN), 0};
    // A client that stops reading loses its connection, not a worker.
    if (n < 0 && errno == EAGAIN && left > 0 && ::poll(&p, 1, static_cast<int>(left)) > 0) continue;
    broken_ = true;
  }
  return broken_ ? -1 : static_cast<ssize_t>(size);
}

void RequestStream::get_remote_ip_and_port(std::string& ip, int& port) const {
  ip = conn_.client_ip;
  port = conn_.client_port;
}

void RequestStream::get_local_ip_and_port(std::string& ip, int& port) const {
  ip = conn_.local_ip;
  port = conn_.local_port;
}

void Address(int fd, bool peer, std::string& ip, int& port) {
  sockaddr_storage addr{};
  socklen_t len = sizeof addr;
  int r = peer ? ::getpeername(fd, reinterpret_cast<sockaddr*>(&addr), &len)
               : ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  if (r != 0) return;
  char text[INET6_ADDRSTRLEN] = {};
  if (addr.ss_family == AF_INET) {
    auto* a = reinterpret_cast<sockaddr_in*>(&addr);
    ::inet_ntop(AF_INET, &a->sin_addr, text, sizeof text);
    port = ntohs(a->sin_port);
  } else if (addr.ss_family == AF_INET6) {
    auto* a = reinterpret_cast<sockaddr_in6*>(&addr);
    ::inet_ntop(AF_INET6, &a->sin6_addr, text, sizeof text);
    port = ntohs(a->sin6_port);
  }
  ip = text;
}

void PostWithWholeBody(httplib::Server& server, const std::string& pattern, httplib::Server::Handler handler) {
  server.Post(pattern, [handler = std::move(handler)](const httplib::Request& req, httplib::Response& res,
                                                      const httplib::ContentReader& read) {
    httplib::Request whole = req;
    auto append = [&whole](const char* data, size_t size) {
      whole.body.append(data, size);
      return true;
    };
    if (req.is_multipart_form_data()) {  // not fields of ours: read and dropped
      read([](const httplib::MultipartFormData&) { return true; }, [](const char*, size_t) { return true; });
    } else {
      read(append);
    }
    handler(whole, res);
  });
}

}  // namespace orvane
