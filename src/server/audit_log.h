// The audit trail: one JSON line for every changing request (201-213, the
// ones the edge refused included), every login, failed login and logout:
// time with zone, session user, client address, event and request code,
// the fields with password values replaced by "***", and the answer's code
// ("OK" or the "ERROR:" code, never the trail). Each line is one write(2)
// on a file opened for appending, done before the answer is sent, so a
// crash loses no line of an answered request. Thread-safe.
#pragma once

#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "dispatch/request_fields.h"

namespace orvane {

struct AuditEntry {
  std::string event;  // "request", "login", "login-failed", "login-throttled", "logout"
  std::string user;   // the session's user (for logins: the id tried)
  std::string client;
  std::string code;  // the request code; empty for logins and logouts
  const NamedValues* fields = nullptr;
  std::string_view answer;
  // A login refused unchecked: which count refused it ("address", ...).
  std::string_view throttled = {};
};

// The JSON line for `e` at `time` (without its newline).
std::string FormatAuditLine(const AuditEntry& e, std::string_view time);

// "OK", "ERROR:CODE" or "data": an answer without its trail.
std::string AnswerCode(std::string_view answer);

class AuditLog {
 public:
  AuditLog() = default;  // writes nowhere
  ~AuditLog();
  AuditLog(const AuditLog&) = delete;
  AuditLog& operator=(const AuditLog&) = delete;

  // Opens (creates) `path` for appending.
  Status Open(const std::string& path);
  // A failed write goes to stderr: the request it records has happened.
  void Write(const AuditEntry& e);

 private:
  std::mutex mu_;
  int fd_ = -1;
  std::string path_;
};

// What `orvane audit` prints: the lines of `log` that match, each as one
// readable line. `since` is a date (YYYY-MM-DD or YYYYMMDD), `user` an id
// and `code` a request code or event; empty ones match everything. A line
// that is not an audit entry is shown as it is, marked.
struct AuditFilter {
  std::string since, user, code;
};
std::vector<std::string> ReadableAuditLines(std::istream& log, const AuditFilter& filter);

}  // namespace orvane
