// Runs the built orvane binary as an administrator would, in a shell.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <utility>

namespace orvane::testing {

// Its exit status and its output (stdout and stderr together).
inline std::pair<int, std::string> RunBinary(const std::string& args) {
  FILE* pipe = ::popen((std::string(ORVANE_BINARY) + " " + args + " 2>&1").c_str(), "r");
  std::string output;
  char buf[4096];
  for (size_t n; (n = fread(buf, 1, sizeof buf, pipe)) > 0;) output.append(buf, n);
  int status = ::pclose(pipe);
  return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, output};
}

// A loopback port free at the moment of asking, for a server started as
// its own process.
inline int FreePort() {
  int fd = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  ::bind(fd, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  ::getsockname(fd, reinterpret_cast<sockaddr*>(&addr), &len);
  ::close(fd);
  return ntohs(addr.sin_port);
}

}  // namespace orvane::testing
