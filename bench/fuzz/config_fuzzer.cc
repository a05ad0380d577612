// The configuration file: one text as the whole of ORVANE.ini, parsed by
// ParseConfigText and looked up through a ConfigFile over a real file in a
// temporary folder on disk (ComIniFileLoad, with its cache keyed by the
// file's identity).
//
// The parse must agree with the line rules read the other way round, one
// character at a time (ReadLines below): tabs gone, blanks trimmed, "#" to
// the end of the line dropped, the value cut at a second "=", keys upper-
// cased, the first line of a key wins. No key holds "=", no value "#", a
// tab or an LF, and neither begins or ends with a blank.
//
// ComIniFileLoad must give every key's value, in any case of the key, and
// the two failure messages word for word. The ConfigFile lives across
// inputs: each input replaces the file (a new file renamed over it, as an
// editor saves) and then rewrites it in place with another size; a lookup
// after each must see the new contents, never the cached old ones.
//
// A CR inside a line (not just before its LF) stays in the value today;
// that is finding 4 of README.md and is only checked with ORVANE_FUZZ_ALL=1.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <string>
#include <string_view>

#include "dispatch/config.h"
#include "temp_folder.h"

namespace {

namespace fs = std::filesystem;

std::string g_input;  // for the report

void Expect(bool holds, const std::string& what) {
  if (holds) return;
  std::fprintf(stderr, "config_fuzzer: %s\ninput (%zu bytes): ", what.c_str(), g_input.size());
  for (unsigned char c : g_input) std::fprintf(stderr, (c < 0x20 || c >= 0x7f) ? "\\x%02x" : "%c", c);
  std::fprintf(stderr, "\n");
  std::abort();
}

char Upper(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }

std::string Lower(std::string s) {
  for (char& c : s)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return s;
}

std::string TrimBlanks(const std::string& s) {
  size_t b = 0, e = s.size();
  while (b < e && s[b] == ' ') ++b;
  while (e > b && s[e - 1] == ' ') --e;
  return s.substr(b, e - b);
}

// The line rules, as a reader that walks the text once: a state per line
// (in the key, in the value, past the value, in a comment).
std::map<std::string, std::string> ReadLines(std::string_view text) {
  std::map<std::string, std::string> entries;
  size_t start = 0;
  while (start <= text.size()) {
    size_t lf = text.find('\n', start);
    size_t end = lf == std::string_view::npos ? text.size() : lf;
    size_t stop = end;
    if (stop > start && text[stop - 1] == '\r') --stop;  // one CR before the LF
    std::string key, value;
    int field = 0;  // 0 key, 1 value, 2 past the second "="
    bool any = false;
    for (size_t i = start; i < stop; ++i) {
      char c = text[i];
      if (c == '\t') continue;
      if (c != ' ') any = true;
      if (c == '#') break;
      if (c == '=') {
        ++field;
        continue;
      }
      if (field == 0) key += Upper(c);
      if (field == 1) value += c;
    }
    // A line of blanks and tabs only is skipped; a comment line is not
    // (it adds the empty key, which no lookup can name).
    if (any) entries.emplace(TrimBlanks(key), TrimBlanks(value));
    if (lf == std::string_view::npos) break;
    start = lf + 1;
  }
  return entries;
}

struct Folder {
  std::string dir, path;
  orvane::ConfigFile* config = nullptr;
  unsigned long generation = 0;
};

Folder& Setup() {
  static Folder* f = [] {
    auto* folder = new Folder;
    const std::string dir = orvane::bench::TempFolder("orvane-config-fuzz");
    folder->dir = dir;
    folder->path = dir + "/ORVANE.ini";
    folder->config = new orvane::ConfigFile(folder->path);
    return folder;
  }();
  return *f;
}

void WriteFile(const std::string& path, const std::string& contents) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << contents;
  out.close();
  Expect(!out.fail(), "cannot write " + path);
}

// Every lookup of `key` (in the case given) against what the file holds.
void CheckLookup(const Folder& f, const std::map<std::string, std::string>& expected, const std::string& key) {
  std::string upper;
  for (char c : key) upper += Upper(c);
  std::string value = "junk";
  orvane::Status s = f.config->ComIniFileLoad(key, value);
  auto it = expected.find(upper);
  if (it == expected.end()) {
    Expect(!s.ok() && value.empty(), "a missing key found: " + key);
    Expect(s.trail() == "環境ファイル(" + f.path + ")に『" + key + "』が存在しません。",
           "missing-key message: " + s.trail());
  } else if (it->second.empty()) {
    Expect(!s.ok() && value.empty(), "an empty value found: " + key);
    Expect(s.trail() == "環境ファイル(" + f.path + ")の\"" + key + "\"は無効な設定です",
           "empty-value message: " + s.trail());
  } else {
    Expect(s.ok(), "a present key not found: " + key + ": " + s.trail());
    Expect(value == it->second, "key " + key + " read back as \"" + value + "\", the lines give \"" + it->second + "\"");
  }
}

void CheckFile(Folder& f, const std::string& contents) {
  std::map<std::string, std::string> expected = ReadLines(contents);
  int looked = 0;
  for (const auto& [key, value] : expected) {
    if (key.empty()) continue;
    CheckLookup(f, expected, key);
    CheckLookup(f, expected, Lower(key));
    if (++looked == 6) break;
  }
  for (const char* key : {"LOCAL_DB_DSN", "ml_mode", "FUZZ_GEN"}) CheckLookup(f, expected, key);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Setup();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  g_input.assign(reinterpret_cast<const char*>(data), size);
  static const bool check_all = std::getenv("ORVANE_FUZZ_ALL") && std::string(std::getenv("ORVANE_FUZZ_ALL")) == "1";

  // The parser against the line rules.
  orvane::ConfigEntries parsed = orvane::ParseConfigText(g_input);
  std::map<std::string, std::string> expected = ReadLines(g_input);
  Expect(parsed.size() == expected.size(), "the parser found " + std::to_string(parsed.size()) + " keys, the lines " +
                                               std::to_string(expected.size()));
  for (const auto& [key, value] : expected) {
    auto it = parsed.find(key);
    Expect(it != parsed.end(), "key \"" + key + "\" not parsed");
    Expect(it->second == value, "key \"" + key + "\" parsed as \"" + it->second + "\", the lines give \"" + value + "\"");
  }
  for (const auto& [key, value] : parsed) {
    Expect(key.find_first_of("=\t\n") == std::string::npos, "a key holds =, a tab or LF: " + key);
    Expect(value.find_first_of("#=\t\n") == std::string::npos, "a value holds #, =, a tab or LF: " + value);
    Expect(TrimBlanks(key) == key && TrimBlanks(value) == value, "an untrimmed key or value: " + key + "=" + value);
    for (char c : key) Expect(c < 'a' || c > 'z', "a key not upper-cased: " + key);
    if (check_all) Expect(value.find('\r') == std::string::npos && key.find('\r') == std::string::npos,
                          "a CR inside a key or value (finding 4): " + key + "=" + value);
  }

  // The file: replaced by a rename, then rewritten in place with another size.
  Folder& f = Setup();
  std::string stamp = "FUZZ_GEN=" + std::to_string(++f.generation) + "\n";
  std::string first = stamp + g_input;
  WriteFile(f.path + ".new", first);
  fs::rename(f.path + ".new", f.path);
  CheckFile(f, first);
  std::string second = stamp + "# in place\n" + g_input;
  WriteFile(f.path, second);
  CheckFile(f, second);
  return 0;
}
