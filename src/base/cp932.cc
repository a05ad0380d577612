#include "base/cp932.h"

#include <cerrno>

namespace orvane {
namespace {

bool IsAscii(std::string_view s) {
  for (char c : s)
    if (static_cast<unsigned char>(c) >= 0x80) return false;
  return true;
}

}  // namespace

Iconv::Iconv(const char* to, const char* from) : cd_(::iconv_open(to, from)) {}

Iconv::~Iconv() {
  if (ok()) ::iconv_close(cd_);
}

bool Iconv::Convert(std::string_view in, std::string& out, size_t& used) {
  ::iconv(cd_, nullptr, nullptr, nullptr, nullptr);  // a fresh shift state for each text
  char* src = const_cast<char*>(in.data());          // iconv's signature; it does not write there
  size_t left = in.size();
  char buffer[1024];
  while (left > 0) {
    char* dst = buffer;
    size_t room = sizeof buffer;
    size_t rc = ::iconv(cd_, &src, &left, &dst, &room);
    out.append(buffer, static_cast<size_t>(dst - buffer));
    if (rc == static_cast<size_t>(-1) && errno != E2BIG) {  // EILSEQ or EINVAL
      used = in.size() - left;
      return false;
    }
  }
  used = in.size();
  return true;
}

bool Cp932ToUtf8(std::string_view in, std::string& out) {
  out.clear();
  // CP932 keeps every ASCII byte as it is, so ASCII text needs no converter.
  if (IsAscii(in)) {
    out.assign(in);
    return true;
  }
  Iconv cv("UTF-8", "CP932");
  size_t used = 0;
  return cv.ok() && cv.Convert(in, out, used);
}

std::string Utf8ToCp932(std::string_view in) {
  if (IsAscii(in)) return std::string(in);
  Iconv cv("CP932", "UTF-8");
  if (!cv.ok()) return std::string(in);
  std::string out;
  size_t pos = 0;
  while (pos < in.size()) {
    size_t used = 0;
    if (cv.Convert(in.substr(pos), out, used)) break;
    // One character without a CP932 form (or a stray byte) becomes "?".
    out.push_back('?');
    pos += used + 1;
    while (pos < in.size() && (static_cast<unsigned char>(in[pos]) & 0xC0) == 0x80) ++pos;
  }
  return out;
}

bool Utf8ToCp932Strict(std::string_view in, std::string& out, size_t& bad_at) {
  out.clear();
  if (IsAscii(in)) {
    out.assign(in);
    return true;
  }
  Iconv cv("CP932", "UTF-8");
  size_t used = 0;
  if (cv.ok() && cv.Convert(in, out, used)) return true;
  bad_at = used;
  return false;
}

}  // namespace orvane
