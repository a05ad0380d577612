#include "server/request_head.h"

#include "base/text.h"

namespace orvane {
namespace {

// httplib refuses a header line longer than this with a bare 400; the
// edge answers 431 first.
constexpr size_t kMaxHeaderLine = 8000;

std::string_view WithoutCr(std::string_view line) {
  return !line.empty() && line.back() == '\r' ? line.substr(0, line.size() - 1) : line;
}

// Method and path from as much of the request line as is there.
void ReadRequestLine(std::string_view line, HeadScan& scan) {
  size_t sp = line.find(' ');
  scan.method = std::string(line.substr(0, std::min<size_t>(sp, 32)));
  if (sp == std::string_view::npos) return;
  std::string_view target = line.substr(sp + 1);
  target = target.substr(0, std::min(target.find(' '), target.find('?')));
  scan.path = std::string(target.substr(0, 512));
}

HeadScan Refused(HeadScan scan, int status) {
  scan.state = HeadScan::State::kRefused;
  scan.status = status;
  return scan;
}

}  // namespace

HeadScan ScanHead(std::string_view in, const EdgeLimits& limits) {
  HeadScan scan;
  size_t eol = in.find('\n');
  std::string_view line = WithoutCr(in.substr(0, eol));
  ReadRequestLine(line, scan);
  if (line.size() > limits.max_request_line) return Refused(scan, 414);
  if (eol == std::string_view::npos) return scan;
  std::vector<std::string> parts = text::Split(line, " ");
  if (parts.size() != 3 || parts[0].empty() || parts[1].empty() || !text::StartsWithIgnoreCase(parts[2], "HTTP/1."))
    return Refused(scan, 400);

  size_t headers = 0;
  bool chunked = false, has_length = false;
  unsigned long long length = 0;
  for (size_t pos = eol + 1;;) {
    size_t next = in.find('\n', pos);
    if (next == std::string_view::npos) {
      if (in.size() > limits.max_header_bytes || in.size() - pos > kMaxHeaderLine) return Refused(scan, 431);
      return scan;
    }
    if (next + 1 > limits.max_header_bytes) return Refused(scan, 431);
    std::string_view header = in.substr(pos, next - pos);
    pos = next + 1;
    if (header == "\r") {  // the blank line
      scan.head_bytes = pos;
      break;
    }
    header = WithoutCr(header);
    if (header.empty()) return Refused(scan, 400);  // a bare LF: httplib would not see the head end
    if (++headers > limits.max_headers || header.size() > kMaxHeaderLine) return Refused(scan, 431);
    size_t colon = header.find(':');
    if (colon == std::string_view::npos || colon == 0) return Refused(scan, 400);
    std::string_view name = header.substr(0, colon);
    std::string value = text::Trim(header.substr(colon + 1));
    if (text::EqualsIgnoreCase(name, "Transfer-Encoding")) {
      chunked = true;
    } else if (text::EqualsIgnoreCase(name, "Content-Length")) {
      if (value.empty() || value.find_first_not_of("0123456789") != std::string::npos) return Refused(scan, 400);
      // Past 19 digits it is more than any limit: too large, not malformed.
      unsigned long long v = value.size() > 19 ? ~0ULL : std::stoull(value);
      if (has_length && v != length) return Refused(scan, 400);
      has_length = true;
      length = v;
    }
  }
  // Bodies are taken whole with their length announced; a chunked body
  // would have to be read before its size is known.
  if (chunked) return Refused(scan, 411);
  if (length > limits.max_body) return Refused(scan, 413);
  scan.state = HeadScan::State::kComplete;
  scan.body_bytes = static_cast<size_t>(length);
  return scan;
}

std::string ForUncompressedAnswer(std::string_view request, size_t head_bytes) {
  constexpr std::string_view name = "Accept-Encoding";
  std::string out;
  out.reserve(request.size());
  for (size_t pos = 0; pos < head_bytes;) {
    size_t next = request.find('\n', pos) + 1;  // the head ends in a line feed
    std::string_view line = request.substr(pos, next - pos);
    size_t colon = line.find(':');
    if (pos == 0 || colon == std::string_view::npos || !text::EqualsIgnoreCase(line.substr(0, colon), name))
      out += line;
    pos = next;
  }
  out += request.substr(head_bytes);
  return out;
}

const char* RefusalReason(int status) {
  switch (status) {
    case 400: return "Bad Request";
    case 408: return "Request Timeout";
    case 411: return "Length Required";
    case 413: return "Payload Too Large";
    case 414: return "URI Too Long";
    case 431: return "Request Header Fields Too Large";
    default: return "Service Unavailable";
  }
}

}  // namespace orvane
