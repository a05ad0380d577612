#include "cli/serve_limits.h"

namespace orvane::cli {

void ServeLimits::Add(CLI::App& cmd) {
  auto add = [&cmd](const char* name, int& value, int low, int high, const char* help) {
    cmd.add_option(name, value, help)->capture_default_str()->check(CLI::Range(low, high))->group("Limits");
  };
  add("--max-connections", max_connections, 1, 100000, "Open connections; more are answered 503 and closed");
  add("--max-requests", max_requests, 1, 100000,
      "Requests queued or being served at once; more are answered 503 with Retry-After");
  add("--max-headers", max_headers, 1, 10000, "Header lines of a request, else 431");
  add("--header-bytes", header_bytes, 1024, 1 << 20, "Bytes of a request's head (line and headers), else 431");
  add("--request-line", request_line, 256, 8000,  // a longer line would meet the head's limit first
      "Bytes of the request line, else 414");
  add("--body-limit", body_limit, 0, 64 << 20, "Bytes of a request body (Content-Length), else 413");
  add("--header-timeout", header_timeout, 1, 3600, "Seconds from a request's first byte to its head's end, else 408");
  add("--body-timeout", body_timeout, 1, 3600, "Seconds to receive a request's body, else 408");
  add("--idle-timeout", idle_timeout, 1, 3600, "Seconds a kept-alive connection may wait for its next request");
  add("--write-timeout", write_timeout, 1, 3600, "Seconds to send an answer before the connection is dropped");
  add("--db-timeout", db_timeout, 0, 3600,
      "Seconds a database statement may run (0: no limit); on SQLite the longest wait for another writer");
  add("--shutdown-grace", shutdown_grace, 0, 3600,
      "Seconds the requests in flight get to finish after SIGTERM or SIGINT");
}

void ServeLimits::ApplyTo(HttpOptions& http) const {
  using std::chrono::seconds;
  EdgeLimits& l = http.limits;
  l.max_connections = static_cast<size_t>(max_connections);
  l.max_requests = static_cast<size_t>(max_requests);
  l.max_headers = static_cast<size_t>(max_headers);
  l.max_header_bytes = static_cast<size_t>(header_bytes);
  l.max_request_line = static_cast<size_t>(request_line);
  l.max_body = static_cast<size_t>(body_limit);
  l.header_timeout = seconds(header_timeout);
  l.body_timeout = seconds(body_timeout);
  l.idle_timeout = seconds(idle_timeout);
  l.write_timeout = seconds(write_timeout);
  l.shutdown_grace = seconds(shutdown_grace);
  http.db_timeout = seconds(db_timeout);
}

}  // namespace orvane::cli
