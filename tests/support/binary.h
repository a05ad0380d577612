// Runs the built orvane binary as an administrator would, in a shell.
#pragma once

#include <sys/wait.h>

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

}  // namespace orvane::testing
