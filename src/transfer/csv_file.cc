#include "transfer/csv_file.h"

#include <csv.h>

#include "base/cp932.h"
#include "base/text.h"
#include "base/text_checks.h"

namespace orvane::transfer {
namespace {

constexpr std::string_view kBom = "\xEF\xBB\xBF";

int LineOf(std::string_view bytes, size_t offset) {
  int line = 1;
  for (size_t i = 0; i < offset && i < bytes.size(); ++i) line += bytes[i] == '\n';
  return line;
}

// libcsv's callbacks gather one record at a time.
struct Reader {
  CsvTable* table = nullptr;
  int line = 1;         // the physical line being fed
  int record_line = 0;  // where the record being gathered began (0: none yet)
  std::vector<std::string> fields;

  void Field(const char* data, size_t size) {
    if (record_line == 0) record_line = line;
    fields.emplace_back(data ? data : "", data ? size : 0);
  }
  void End() {
    if (record_line == 0) record_line = line;
    if (table->header.empty() && table->header_line == 0) {
      table->header_line = record_line;
      table->header = std::move(fields);
    } else {
      table->rows.push_back({record_line, std::move(fields)});
    }
    fields.clear();
    record_line = 0;
  }
};

void OnField(void* data, size_t size, void* self) {
  static_cast<Reader*>(self)->Field(static_cast<const char*>(data), size);
}
void OnRecordEnd(int, void* self) { static_cast<Reader*>(self)->End(); }

// Unquoted fields keep their blanks: a name's trailing blank is data.
int NoSpace(unsigned char) { return 0; }

bool NeedsQuotes(std::string_view field) {
  if (field.empty()) return false;
  if (field.front() == ' ' || field.back() == ' ') return true;
  return field.find_first_of(",\"\r\n") != std::string_view::npos;
}

}  // namespace

bool ParseEncoding(std::string_view name, Encoding& out) {
  std::string folded = text::ReplaceAll(text::ToUpperAscii(name), "-", "_");
  if (folded == "UTF_8") {
    out = Encoding::kUtf8;
  } else if (folded == "SHIFT_JIS") {
    out = Encoding::kShiftJis;
  } else {
    return false;
  }
  return true;
}

bool ReadCsv(std::string_view bytes, Encoding encoding, CsvTable& out, FileFault& fault) {
  out = CsvTable{};
  const bool bom = bytes.starts_with(kBom);
  std::string utf8;
  if (encoding == Encoding::kShiftJis) {
    if (bom) {
      fault = {1, "a UTF-8 byte-order mark in a file read as Shift_JIS (leave out --encoding for UTF-8)"};
      return false;
    }
    if (!Cp932ToUtf8(bytes, utf8)) {
      // Find the first line that does not convert, to name it.
      int line = 1;
      for (const std::string& l : text::Split(bytes, "\n")) {
        std::string ignored;
        if (!Cp932ToUtf8(l, ignored)) break;
        ++line;
      }
      fault = {line, "not Shift_JIS text"};
      return false;
    }
  } else {
    utf8.assign(bom ? bytes.substr(kBom.size()) : bytes);
    if (!text::IsValidUtf8(utf8)) {
      int line = 1;
      for (const std::string& l : text::Split(utf8, "\n")) {
        if (!text::IsValidUtf8(l)) break;
        ++line;
      }
      fault = {line, "not UTF-8 text (a Shift_JIS file needs the Shift_JIS encoding)"};
      return false;
    }
  }

  csv_parser parser;
  if (csv_init(&parser, CSV_STRICT | CSV_STRICT_FINI) != 0) {
    fault = {0, "out of memory"};
    return false;
  }
  csv_set_space_func(&parser, NoSpace);
  Reader reader;
  reader.table = &out;
  // Fed a line at a time, so that each record knows the line it began on;
  // empty lines give no record but still count.
  std::string_view rest = utf8;
  bool ok = true;
  while (ok && !rest.empty()) {
    size_t nl = rest.find('\n');
    std::string_view piece = rest.substr(0, nl == std::string_view::npos ? rest.size() : nl + 1);
    ok = csv_parse(&parser, piece.data(), piece.size(), OnField, OnRecordEnd, &reader) == piece.size();
    rest.remove_prefix(piece.size());
    if (ok && nl != std::string_view::npos) ++reader.line;
  }
  if (ok) ok = csv_fini(&parser, OnField, OnRecordEnd, &reader) == 0;
  csv_free(&parser);
  if (!ok) {
    fault = {reader.record_line ? reader.record_line : reader.line,
             "broken quoting (a quote must open and close a field)"};
    return false;
  }
  if (out.header_line == 0) {
    fault = {1, "empty file: no header line"};
    return false;
  }
  return true;
}

bool WriteCsv(const std::vector<std::vector<std::string>>& rows, Encoding encoding, std::string& out,
              FileFault& fault) {
  std::string text;
  if (encoding == Encoding::kUtf8) text.assign(kBom);
  std::string quoted;
  for (const std::vector<std::string>& row : rows) {
    for (size_t i = 0; i < row.size(); ++i) {
      if (i > 0) text.push_back(',');
      const std::string& field = row[i];
      if (!NeedsQuotes(field)) {
        text += field;
        continue;
      }
      // Every '"' doubled and the field framed: at most twice the size plus two.
      quoted.resize(field.size() * 2 + 2);
      quoted.resize(csv_write(quoted.data(), quoted.size(), field.data(), field.size()));
      text += quoted;
    }
    text += "\r\n";
  }
  if (encoding == Encoding::kUtf8) {
    out = std::move(text);
    return true;
  }
  size_t bad_at = 0;
  if (Utf8ToCp932Strict(text, out, bad_at)) return true;
  fault = {LineOf(text, bad_at), "a character that Shift_JIS cannot hold (export in UTF-8 instead)"};
  return false;
}

}  // namespace orvane::transfer
