// ToolRunner: runs one of the mail server's command-line tools on this
// machine (the system's "BASP21" Execute2 and Result).
//
// The command line is built by the mail routines as the Windows host wrote
// it: "<tool folder>adduser.exe -u id -p pw". The program is everything up
// to and including the first ".exe" (so the tool folder may hold blanks),
// with "\" turned into "/"; the rest is split at blanks into arguments. The
// program is started directly with posix_spawn, never through a shell, so no
// text in a user ID or password can start another command.
//
// Output (stdout and stderr, in the order written) becomes Run's result; Result() is the exit code. A program still
// running after the time-out is killed with its whole process group and the run fails. One runner per request; not
// thread-safe.
#pragma once

#include <chrono>
#include <string>
#include <string_view>
#include <vector>

namespace orvane::accounts {

// Result() of a run that did not end with an exit code of its own.
inline constexpr int kToolNotStarted = -1;
inline constexpr int kToolTimedOut = -2;
inline constexpr int kToolKilled = -3;  // ended by a signal

struct ToolCommand {
  std::string program;
  std::vector<std::string> args;  // not counting the program itself
};

// Splits a command line as described above. A line without ".exe" is all
// program up to the first blank.
ToolCommand SplitToolCommandLine(std::string_view command_line);

class ToolRunner {
 public:
  explicit ToolRunner(std::chrono::milliseconds timeout) : timeout_(timeout) {}

  // Runs `command_line` to its end and returns its output. When the
  // program cannot be started the text is "Execute Error(" errno ")", after
  // a time-out "Execute Timeout(" seconds ")".
  std::string Run(std::string_view command_line);
  // Exit code of the last run (0 = success), or one of the codes above.
  int Result() const { return result_; }

 private:
  std::chrono::milliseconds timeout_;
  int result_ = kToolNotStarted;
};

}  // namespace orvane::accounts
