// Code page 932 (Shift_JIS as Windows writes it, iconv's "CP932") and
// UTF-8, through glibc's iconv: the HTTP edge's Shift_JIS pages and the
// Shift_JIS CSV files of the transfer both convert here.
#pragma once

#include <iconv.h>

#include <string>
#include <string_view>

namespace orvane {

// One iconv conversion descriptor, closed with its owner. Not thread-safe:
// one per thread or per call.
class Iconv {
 public:
  Iconv(const char* to, const char* from);
  ~Iconv();
  Iconv(const Iconv&) = delete;
  Iconv& operator=(const Iconv&) = delete;

  bool ok() const { return cd_ != reinterpret_cast<iconv_t>(-1); }
  // Converts `in` whole, appending to `out`. On a sequence the source set
  // does not define (or one cut short at the end), or a character the
  // target set has no form for: false, `out` holding what came before and
  // `used` how many bytes of `in` were converted.
  bool Convert(std::string_view in, std::string& out, size_t& used);

 private:
  iconv_t cd_;
};

// CP932 bytes to UTF-8; false when `in` is not valid CP932.
bool Cp932ToUtf8(std::string_view in, std::string& out);
// UTF-8 to CP932. A character CP932 has no form for, and a byte that is not
// UTF-8, is sent as "?".
std::string Utf8ToCp932(std::string_view in);

// UTF-8 to CP932, refusing what CP932 cannot hold: false at the first
// character without a CP932 form (or a byte that is not UTF-8), with
// `bad_at` its byte offset in `in`.
bool Utf8ToCp932Strict(std::string_view in, std::string& out, size_t& bad_at);

}  // namespace orvane
