// The transfer's CSV files as text: reading a file's bytes into a header
// and records (each with the line it starts on), and writing records back,
// through libcsv (RFC 4180 quoting). UTF-8 files may begin with a
// byte-order mark, and are written with one so that spreadsheets read them
// as UTF-8; Shift_JIS (code page 932) files are converted at this edge, so
// everything behind it is UTF-8.
//
// Pure functions; thread-safe.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvane::transfer {

enum class Encoding { kUtf8, kShiftJis };

// "utf-8" or "shift_jis" (ASCII case folded, "-" and "_" alike).
bool ParseEncoding(std::string_view name, Encoding& out);

struct CsvRecord {
  int line = 0;  // the line of the file the record starts on (the header is line 1)
  std::vector<std::string> fields;
};

struct CsvTable {
  int header_line = 0;
  std::vector<std::string> header;
  std::vector<CsvRecord> rows;
};

// A file that cannot be read as CSV at all: the line it fails on and why.
struct FileFault {
  int line = 0;
  std::string message;
};

// Reads a whole file. False with `fault` when the bytes are not text in
// `encoding`, the quoting is broken or there is no header line.
bool ReadCsv(std::string_view bytes, Encoding encoding, CsvTable& out, FileFault& fault);

// The file's bytes: `rows` (the header first) with CR LF line ends, a
// byte-order mark in front with UTF-8. With Shift_JIS a character that code
// page 932 has no form for is refused: false with `fault` naming the line.
bool WriteCsv(const std::vector<std::vector<std::string>>& rows, Encoding encoding, std::string& out, FileFault& fault);

}  // namespace orvane::transfer
