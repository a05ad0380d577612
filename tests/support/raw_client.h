// A raw TCP client for what an HTTP client library will not send: floods,
// slow heads, lies about lengths. Every read gives up after `timeout`.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <string>

namespace orvane::testing {

class RawClient {
 public:
  explicit RawClient(int port, std::chrono::milliseconds timeout = std::chrono::seconds(5)) {
    fd_ = ::socket(AF_INET, SOCK_STREAM, 0);
    timeval tv{static_cast<time_t>(timeout.count() / 1000), static_cast<suseconds_t>(timeout.count() % 1000 * 1000)};
    ::setsockopt(fd_, SOL_SOCKET, SO_RCVTIMEO, &tv, sizeof tv);
    ::setsockopt(fd_, SOL_SOCKET, SO_SNDTIMEO, &tv, sizeof tv);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_port = htons(static_cast<uint16_t>(port));
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    connected_ = ::connect(fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr) == 0;
  }
  ~RawClient() { ::close(fd_); }
  RawClient(const RawClient&) = delete;
  RawClient& operator=(const RawClient&) = delete;

  bool connected() const { return connected_; }
  int fd() const { return fd_; }
  // False once the server stopped taking bytes.
  bool Send(const std::string& bytes) {
    for (size_t done = 0; done < bytes.size();) {
      ssize_t n = ::send(fd_, bytes.data() + done, bytes.size() - done, MSG_NOSIGNAL);
      if (n <= 0) return false;
      done += static_cast<size_t>(n);
    }
    return true;
  }
  // Everything until the server closes (or the timeout).
  std::string ReadAll() {
    std::string out;
    char buf[4096];
    for (ssize_t n; (n = ::recv(fd_, buf, sizeof buf, 0)) > 0;) out.append(buf, static_cast<size_t>(n));
    return out;
  }
  // What arrives until `needle` is in it (or the server closes, or the
  // timeout); kept-alive answers come one at a time.
  std::string ReadUntil(const std::string& needle) {
    std::string out;
    char buf[4096];
    for (ssize_t n; out.find(needle) == std::string::npos && (n = ::recv(fd_, buf, sizeof buf, 0)) > 0;)
      out.append(buf, static_cast<size_t>(n));
    return out;
  }
  // The status line of what the server sent.
  std::string StatusLine() {
    std::string all = ReadAll();
    return all.substr(0, all.find("\r\n"));
  }

 private:
  int fd_ = -1;
  bool connected_ = false;
};

}  // namespace orvane::testing
