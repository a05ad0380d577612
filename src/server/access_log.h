// One line per request on a stream (stderr in `orvane serve`): time, client,
// method, path, request code, status, microseconds and the answer's first 40
// bytes, and, when the database refused something, its native error,
// SQLSTATE and message (the answer never carries them). Only the path is
// logged, never the query or form body, so password fields cannot reach the
// log; answers that hold a password are not shown, and the request's
// password values are blanked out of a database message.
// Thread-safe.
#pragma once

#include <mutex>
#include <ostream>
#include <string>
#include <string_view>

#include "base/status.h"

namespace orvane {

struct AccessRecord {
  std::string client;
  std::string method;
  std::string path;
  std::string request_code;
  int status = 0;
  long long micros = 0;
  std::string_view answer;
  bool answer_is_secret = false;
  Cause failure;  // the database's account of the request's last failure
};

// The local wall-clock time with its zone, "2026-11-23T14:35:05+0900": logs
// get compared across hosts.
std::string WallTimeWithZone();

// The log line for `r`, without its newline. `now` is the local time text.
std::string FormatAccessLine(const AccessRecord& r, std::string_view now);

class AccessLog {
 public:
  explicit AccessLog(std::ostream* out) : out_(out) {}  // null: no log
  void Write(const AccessRecord& r);

 private:
  std::mutex mu_;
  std::ostream* out_;  // guarded by mu_
};

}  // namespace orvane
