// The edge's reading of a request's first bytes: enough to bound it (line,
// headers, body length) before a worker or the body is involved. The full
// parse stays httplib's.
#pragma once

#include <string>
#include <string_view>

#include "server/edge_limits.h"

namespace orvane {

struct HeadScan {
  enum class State { kPartial, kComplete, kRefused };
  State state = State::kPartial;
  int status = 0;          // kRefused: the answer's status
  size_t head_bytes = 0;   // kComplete: the head with its blank line
  size_t body_bytes = 0;   // kComplete: Content-Length
  std::string method;      // as far as the request line was read
  std::string path;        // the target without its query
};

// `in` holds the bytes received so far, the request's first byte first.
HeadScan ScanHead(std::string_view in, const EdgeLimits& limits);

// The complete request `request` (its head `head_bytes` long, as ScanHead
// found it) without its Accept-Encoding lines. Answers go out uncompressed:
// the packaged httplib compresses with brotli at its slowest level, seconds
// for the drawn tree, and on loopback or a LAN the bytes cost less than
// that (a proxy in front may compress).
std::string ForUncompressedAnswer(std::string_view request, size_t head_bytes);
// The reason phrase (and body) of a status the edge answers itself.
const char* RefusalReason(int status);

}  // namespace orvane
