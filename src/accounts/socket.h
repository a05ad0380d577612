// Socket: the TCP client that talks to the exe proxy on the mail-server
// machine, with the five members and numeric codes the mail routines test
// (the system's "BASP21.socket").
//
// Wire rules the proxy expects: every Write sends its text followed by CR LF,
// as UTF-8 bytes (the text is already UTF-8); Read and readLine each return
// one received line without its line end (LF, with or without a CR before it).
//
// Codes: 0 is success; every failure is a negative errno value, so it reads
// as the reason in "Connect Error(-111)". A time-out is kSocketTimedOut, a
// peer that closed before sending a line is kSocketClosed. Write never
// returns a positive code.
//
// Every blocking step (connect, each Write, each Read/readLine) ends after
// the time-out given at construction, so a dead or silent proxy cannot hang
// a request. One Socket per exchange; not thread-safe.
#pragma once

#include <cerrno>
#include <chrono>
#include <string>
#include <string_view>

namespace orvane::accounts {

inline constexpr int kSocketTimedOut = -ETIMEDOUT;
inline constexpr int kSocketClosed = -ECONNRESET;
inline constexpr int kSocketNotConnected = -ENOTCONN;
inline constexpr int kSocketBadAddress = -EADDRNOTAVAIL;
inline constexpr int kSocketLineTooLong = -EMSGSIZE;

class Socket {
 public:
  explicit Socket(std::chrono::milliseconds timeout) : timeout_(timeout) {}
  ~Socket() { Close(); }
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;

  // `port` is text as the configuration holds it; a host name or an IPv4/IPv6
  // address. Tries each resolved address until one connects.
  int Connect(std::string_view host, std::string_view port);
  int Write(std::string_view text);
  int Read(std::string& buffer) { return ReceiveLine(buffer); }
  int readLine(std::string& buffer) { return ReceiveLine(buffer); }
  void Close();

 private:
  int ConnectOne(const void* addr, unsigned addr_len, int family);
  int ReceiveLine(std::string& line);

  std::chrono::milliseconds timeout_;
  int fd_ = -1;
  std::string pending_;  // bytes received past the last line handed out
};

}  // namespace orvane::accounts
