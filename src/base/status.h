// Status: what the system's routines return. Every routine of the system
// reports success or failure as a number (the database routines 0 or 1, the
// mail and storage routines 0 or -1) and, on failure, an error trail: the
// names of the routines it passed through, each followed by CR LF, in front
// of the innermost message ("funInsCirMember" CR LF "[Com_funExecsql]...").
// A Status carries that number and that trail together, and, when a
// database refused something, the database's own account of it (`Cause`)
// for the operator's log; the cause never reaches an answer.
//
// Three failures say more than their code and trail:
//   Answered()    the routine has already written the request's answer
//                 (a missing configuration key writes its own code); the
//                 caller adds nothing and only unwinds (roll back, close).
//   Refused(msg)  the input is refused; `msg` is the message the user sees.
//   Untold()      a failure with no text of its own; the caller answers in
//                 its own words.
//
// [[nodiscard]]: a failure cannot be dropped by accident. A caller that
// means to go on regardless says so with IgnoreError() and a comment.
//
// Immutable once made except by the && members; safe to copy between
// threads like any value.
#pragma once

#include <string>
#include <string_view>
#include <utility>

namespace orvane {

// The database's own words for a failure: native error, SQLSTATE, message.
struct Cause {
  long native = 0;
  std::string sqlstate;
  std::string message;
  bool empty() const { return native == 0 && sqlstate.empty() && message.empty(); }
};

class [[nodiscard]] Status {
 public:
  static constexpr int kOk = 0;
  static constexpr int kDbFailed = 1;  // the Com_fun... database routines
  static constexpr int kFailed = -1;   // the mail, storage and helper routines

  Status() = default;  // success
  static Status Ok() { return Status(); }
  // A failure of a database routine: code 1.
  static Status DbFailure(std::string trail, Cause cause = {}) {
    return Status(kDbFailed, std::move(trail), std::move(cause));
  }
  // A failure of any other routine: code -1 unless the routine's own
  // family says otherwise.
  static Status Failure(std::string trail, int code = kFailed) { return Status(code, std::move(trail), {}); }
  // The answer is already on the response; nothing is to be added to it.
  static Status Answered() { return Status(kFailed, {}, {}, Kind::kAnswered); }
  // The input is refused with `message` (the ID or alias is another user's).
  static Status Refused(std::string message) { return Status(kFailed, std::move(message), {}, Kind::kRefused); }
  // A failure with no text of its own.
  static Status Untold() { return Status(kFailed, {}, {}); }

  bool ok() const { return code_ == kOk; }
  int code() const { return code_; }
  const std::string &trail() const { return trail_; }
  const Cause &cause() const { return cause_; }
  // The answer is already written: see Answered(). Kept through Prefixed,
  // From and Suffixed, which still grow the trail as for any failure.
  bool answered() const { return kind_ == Kind::kAnswered; }
  // The input was refused: see Refused(); the trail is the message.
  bool refused() const { return kind_ == Kind::kRefused; }

  // `routine` and CR LF in front of the trail, the code kept.
  Status Prefixed(std::string_view routine) &&;
  // The same failure reported by a routine of the -1 family: `routine` and
  // CR LF in front of the trail, code -1, the cause kept. Success stays
  // success.
  Status From(std::string_view routine) &&;

  // The drawn-tree routine's own habit: `routine` and CR LF behind the
  // trail instead of in front. The code is kept.
  Status Suffixed(std::string_view routine) &&;

  // Going on after a failure on purpose; the call site says why.
  void IgnoreError() const {}

 private:
  enum class Kind { kPlain, kAnswered, kRefused };
  Status(int code, std::string trail, Cause cause, Kind kind = Kind::kPlain)
      : code_(code), trail_(std::move(trail)), cause_(std::move(cause)), kind_(kind) {}

  int code_ = kOk;
  std::string trail_;
  Cause cause_;
  Kind kind_ = Kind::kPlain;
};

}  // namespace orvane
