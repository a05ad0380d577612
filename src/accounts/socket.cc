#include "accounts/socket.h"

#include <fcntl.h>
#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>

namespace orvane::accounts {
namespace {

using Clock = std::chrono::steady_clock;

// A member file travels as one line; anything beyond this is not a reply.
constexpr size_t kMaxLine = 16 * 1024 * 1024;

// Waits for `events` on `fd` until `deadline`: 0 when ready, otherwise a
// negative code.
int WaitFor(int fd, short events, Clock::time_point deadline) {
  for (;;) {
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return kSocketTimedOut;
    pollfd p{fd, events, 0};
    int n = ::poll(&p, 1, static_cast<int>(left));
    if (n > 0) return 0;
    if (n == 0) return kSocketTimedOut;
    if (errno != EINTR) return -errno;
  }
}

}  // namespace

int Socket::Connect(std::string_view host, std::string_view port) {
  Close();
  if (host.empty() || port.empty()) return kSocketBadAddress;
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_NUMERICSERV;
  addrinfo* found = nullptr;
  if (::getaddrinfo(std::string(host).c_str(), std::string(port).c_str(), &hints, &found) != 0 || !found)
    return kSocketBadAddress;
  int rc = kSocketBadAddress;
  auto deadline = Clock::now() + timeout_;
  for (addrinfo* a = found; a; a = a->ai_next) {
    rc = ConnectOne(a->ai_addr, a->ai_addrlen, a->ai_family);
    if (rc == 0 || Clock::now() >= deadline) break;
  }
  ::freeaddrinfo(found);
  return rc;
}

int Socket::ConnectOne(const void* addr, unsigned addr_len, int family) {
  int fd = ::socket(family, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
  if (fd < 0) return -errno;
  int rc = 0;
  if (::connect(fd, static_cast<const sockaddr*>(addr), addr_len) != 0) {
    if (errno != EINPROGRESS) {
      rc = -errno;
    } else if ((rc = WaitFor(fd, POLLOUT, Clock::now() + timeout_)) == 0) {
      int so_error = 0;
      socklen_t len = sizeof so_error;
      if (::getsockopt(fd, SOL_SOCKET, SO_ERROR, &so_error, &len) != 0) so_error = errno;
      rc = -so_error;
    }
  }
  if (rc != 0) {
    ::close(fd);
    return rc;
  }
  fd_ = fd;
  return 0;
}

int Socket::Write(std::string_view text) {
  if (fd_ < 0) return kSocketNotConnected;
  std::string line;
  line.reserve(text.size() + 2);
  line.append(text).append("\r\n");
  auto deadline = Clock::now() + timeout_;
  size_t sent = 0;
  while (sent < line.size()) {
    ssize_t n = ::send(fd_, line.data() + sent, line.size() - sent, MSG_NOSIGNAL);
    if (n >= 0) {
      sent += static_cast<size_t>(n);
      continue;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return -errno;
    if (int rc = WaitFor(fd_, POLLOUT, deadline); rc != 0) return rc;
  }
  return 0;
}

int Socket::ReceiveLine(std::string& line) {
  if (fd_ < 0) return kSocketNotConnected;
  auto deadline = Clock::now() + timeout_;
  size_t scanned = 0;
  for (;;) {
    size_t lf = pending_.find('\n', scanned);
    if (lf != std::string::npos) {
      size_t end = (lf > 0 && pending_[lf - 1] == '\r') ? lf - 1 : lf;
      line.assign(pending_, 0, end);
      pending_.erase(0, lf + 1);
      return 0;
    }
    scanned = pending_.size();
    if (pending_.size() > kMaxLine) return kSocketLineTooLong;
    char chunk[8192];
    ssize_t n = ::recv(fd_, chunk, sizeof chunk, 0);
    if (n > 0) {
      pending_.append(chunk, static_cast<size_t>(n));
      continue;
    }
    if (n == 0) {
      // The peer closed: an unterminated last line still counts as a line.
      if (pending_.empty()) return kSocketClosed;
      line = std::move(pending_);
      pending_.clear();
      return 0;
    }
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return -errno;
    if (int rc = WaitFor(fd_, POLLIN, deadline); rc != 0) return rc;
  }
}

void Socket::Close() {
  if (fd_ >= 0) ::close(fd_);
  fd_ = -1;
  pending_.clear();
}

}  // namespace orvane::accounts
