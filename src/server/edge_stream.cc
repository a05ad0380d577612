#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

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
    pollfd p{conn_.channel->fd(), POLLOUT, 0};
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

}  // namespace orvane
