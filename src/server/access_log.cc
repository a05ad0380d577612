#include "server/access_log.h"

#include <algorithm>
#include <ctime>

namespace orvane {
namespace {

// Control bytes (CR LF, the 0x1C joins) would break the one-line-per-request
// shape of the log, and a quote or backslash would let a value end its
// quoted field early; show them escaped. Fields from the client are cut
// short, never inside a UTF-8 character: the character that would be cut
// is left out whole.
std::string Printable(std::string_view s, size_t max_bytes) {
  size_t end = std::min(max_bytes, s.size());
  // Back over at most three continuation bytes to the start of the character.
  for (int i = 0; i < 3 && end > 0 && end < s.size() && (static_cast<unsigned char>(s[end]) & 0xC0) == 0x80; ++i) --end;
  std::string out;
  for (unsigned char c : s.substr(0, end)) {
    if (c < 0x20 || c == 0x7F || c == '"' || c == '\\') {
      static constexpr char kHex[] = "0123456789ABCDEF";
      out += "\\x";
      out.push_back(kHex[c >> 4]);
      out.push_back(kHex[c & 15]);
    } else {
      out.push_back(static_cast<char>(c));
    }
  }
  return out;
}

std::string Quoted(std::string_view s, size_t max_bytes) {
  std::string out = "\"";
  out += Printable(s, max_bytes);
  out += '"';
  return out;
}

}  // namespace

std::string FormatAccessLine(const AccessRecord& r, std::string_view now) {
  std::string line(now);
  for (const std::string& field : {Printable(r.client, 64), Printable(r.method, 16), Printable(r.path, 200)}) {
    line += ' ';
    line += field.empty() ? std::string("-") : field;  // a request refused before it was read
  }
  line += " ReqNo=";
  line += Quoted(r.request_code, 16);
  line += ' ';
  line += std::to_string(r.status);
  line += ' ';
  line += std::to_string(r.micros);
  line += "us ";
  line += r.answer_is_secret ? std::string("[answer withheld]") : Quoted(r.answer, 40);
  if (!r.failure.empty()) {
    line += " db=";
    line += std::to_string(r.failure.native);
    line += ',';
    line += Quoted(r.failure.sqlstate, 8);
    line += ',';
    line += Quoted(r.failure.message, 300);
  }
  return line;
}

std::string WallTimeWithZone() {
  std::time_t t = std::time(nullptr);
  std::tm tm{};
  localtime_r(&t, &tm);
  char now[32];
  std::strftime(now, sizeof now, "%Y-%m-%dT%H:%M:%S%z", &tm);
  return now;
}

void AccessLog::Write(const AccessRecord& r) {
  if (!out_) return;
  std::string line = FormatAccessLine(r, WallTimeWithZone()) + "\n";
  std::lock_guard lock(mu_);
  *out_ << line << std::flush;
}

}  // namespace orvane
