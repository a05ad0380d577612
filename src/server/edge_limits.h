// What the HTTP edge allows a client before a worker sees its request.
#pragma once

#include <chrono>
#include <cstddef>

namespace orvane {

struct EdgeLimits {
  size_t max_connections = 512;      // open connections; more are answered 503 and closed
  size_t max_requests = 64;          // complete requests queued or running; more: 503
  size_t max_request_line = 8000;    // bytes, else 414
  size_t max_headers = 100;          // header lines, else 431
  size_t max_header_bytes = 16384;   // the whole head, else 431
  size_t max_body = size_t{1} << 20; // Content-Length, else 413
  std::chrono::milliseconds header_timeout{10000};  // first byte to the end of the head, else 408
  std::chrono::milliseconds body_timeout{30000};    // end of the head to the end of the body, else 408
  std::chrono::milliseconds idle_timeout{5000};     // keep-alive wait for the next request
  std::chrono::milliseconds write_timeout{10000};   // one answer written, else the connection is dropped
  std::chrono::milliseconds shutdown_grace{30000};  // requests in flight finish within this at a stop
};

}  // namespace orvane
