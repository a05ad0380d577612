#include "accounts/tool_runner.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <thread>

#include "base/text.h"

extern char** environ;

namespace orvane::accounts {
namespace {

using Clock = std::chrono::steady_clock;

// A tool's reply is a line or two; more is kept no further.
constexpr size_t kMaxOutput = 1024 * 1024;

// RAII for the two spawn descriptors, which must be destroyed on every path.
struct SpawnSetup {
  posix_spawn_file_actions_t actions;
  posix_spawnattr_t attr;
  SpawnSetup() {
    posix_spawn_file_actions_init(&actions);
    posix_spawnattr_init(&attr);
  }
  ~SpawnSetup() {
    posix_spawn_file_actions_destroy(&actions);
    posix_spawnattr_destroy(&attr);
  }
};

class Fd {
 public:
  explicit Fd(int fd = -1) : fd_(fd) {}
  ~Fd() { Reset(); }
  Fd(const Fd&) = delete;
  Fd& operator=(const Fd&) = delete;
  int get() const { return fd_; }
  void Reset() {
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
  }

 private:
  int fd_;
};

// Reads `fd` until end of file or `deadline`; true at end of file.
bool ReadUntilClosed(int fd, Clock::time_point deadline, std::string& out) {
  char chunk[4096];
  for (;;) {
    ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n > 0) {
      if (out.size() < kMaxOutput) out.append(chunk, std::min(static_cast<size_t>(n), kMaxOutput - out.size()));
      continue;
    }
    if (n == 0) return true;
    if (errno == EINTR) continue;
    if (errno != EAGAIN && errno != EWOULDBLOCK) return true;
    auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    if (left <= 0) return false;
    pollfd p{fd, POLLIN, 0};
    if (::poll(&p, 1, static_cast<int>(left)) == 0) return false;
  }
}

// Waits for `pid` until `deadline`; true with `status` set when it ended.
bool WaitUntil(pid_t pid, Clock::time_point deadline, int& status) {
  for (;;) {
    pid_t r = ::waitpid(pid, &status, WNOHANG);
    if (r == pid) return true;
    if (r < 0 && errno != EINTR) {
      status = -1;  // exit code unknown: never counts as success
      return true;
    }
    if (Clock::now() >= deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
}

}  // namespace

ToolCommand SplitToolCommandLine(std::string_view command_line) {
  ToolCommand cmd;
  size_t exe = text::FindIgnoreCase(command_line, ".exe");
  size_t end = exe != std::string_view::npos ? exe + 4 : std::min(command_line.find(' '), command_line.size());
  cmd.program = text::ReplaceAll(command_line.substr(0, end), "\\", "/");
  for (std::string& arg : text::Split(command_line.substr(end), " "))
    if (!arg.empty()) cmd.args.push_back(std::move(arg));
  return cmd;
}

std::string ToolRunner::Run(std::string_view command_line) {
  result_ = kToolNotStarted;
  ToolCommand cmd = SplitToolCommandLine(command_line);
  std::vector<char*> argv;
  argv.push_back(cmd.program.data());
  for (std::string& a : cmd.args) argv.push_back(a.data());
  argv.push_back(nullptr);

  int pipe_fds[2];
  if (::pipe2(pipe_fds, O_CLOEXEC) != 0) return "Execute Error(" + std::to_string(errno) + ")";
  Fd read_end(pipe_fds[0]), write_end(pipe_fds[1]);

  SpawnSetup setup;
  posix_spawn_file_actions_addopen(&setup.actions, 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&setup.actions, write_end.get(), 1);
  posix_spawn_file_actions_adddup2(&setup.actions, write_end.get(), 2);
  // No descriptor of the server (listening sockets, database) reaches the tool.
  posix_spawn_file_actions_addclosefrom_np(&setup.actions, 3);
  // Its own process group, so a time-out kills the tool and anything it started.
  sigset_t no_signals, all_signals;
  sigemptyset(&no_signals);
  sigfillset(&all_signals);
  posix_spawnattr_setpgroup(&setup.attr, 0);
  posix_spawnattr_setsigmask(&setup.attr, &no_signals);
  posix_spawnattr_setsigdefault(&setup.attr, &all_signals);
  posix_spawnattr_setflags(&setup.attr, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK | POSIX_SPAWN_SETSIGDEF);

  pid_t pid = -1;
  int err = ::posix_spawn(&pid, cmd.program.c_str(), &setup.actions, &setup.attr, argv.data(), environ);
  write_end.Reset();
  if (err != 0) return "Execute Error(" + std::to_string(err) + ")";

  ::fcntl(read_end.get(), F_SETFL, O_NONBLOCK);
  auto deadline = Clock::now() + timeout_;
  std::string output;
  int status = 0;
  if (!ReadUntilClosed(read_end.get(), deadline, output) || !WaitUntil(pid, deadline, status)) {
    ::kill(-pid, SIGKILL);
    while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    result_ = kToolTimedOut;
    auto seconds = std::chrono::duration_cast<std::chrono::seconds>(timeout_).count();
    return "Execute Timeout(" + std::to_string(seconds) + ")";
  }
  result_ = WIFEXITED(status) ? WEXITSTATUS(status) : kToolKilled;
  return output;
}

}  // namespace orvane::accounts
