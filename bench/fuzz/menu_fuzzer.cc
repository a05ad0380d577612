// The menu catalogue: one text as menuinfo.csv in a temporary folder on
// disk, beside an ORVANE.ini, read by LoadApplicationValues as the server
// reads it at start; then request 001 (the server information) in-process,
// as `orvane request` runs it.
//
// An input that holds a line "[ini]" is cut there: the rest is the
// ORVANE.ini (so that 001 also meets missing keys and odd values);
// otherwise a fixed, complete one is used.
//
// The catalogue must be what the lines give (UTF-8 mark, CR before LF,
// blank lines, "number,name[,shown]" with two digits and shown 0, 1 or
// empty), or the load must fail naming the first bad line, with nothing
// kept. The answer of 001 must be, word for word, either the
// "ERROR:READINFOFILE_..." code of the first missing key, or the colour,
// ML_MODE, ML_USEFLG, ML_ADDUSEFLG and the three items of menus 23 and 07:
// ten items when no configuration value holds a ",". Names hold no ","
// and no LF; a CR inside a line (finding 4 of README.md) is checked only
// with ORVANE_FUZZ_ALL=1.
#include <unistd.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "dispatch/request_context.h"
#include "dispatch/request_fields.h"
#include "dispatch/session.h"
#include "requests/web_class.h"
#include "temp_folder.h"

namespace {

namespace fs = std::filesystem;

constexpr std::string_view kIniMark = "\n[ini]\n";
constexpr char kFixedIni[] =
    "LOCAL_DB_DSN=orvane_fuzz\nMAINFORM_BACK_COLOR=FFEEDD\nML_MODE=2\nML_USEFLG=1\nML_ISLOCAL=False\n"
    "ML_ADDUSEFLG=0\nML_EXEPROXY_PORT=9\nML_SERVERIP=127.0.0.1\nML_SERVER=example.jp\nML_FOLDER=D:\\IMail\n"
    "JNJI_MODE=0\n";
// Read by 001 in this order; the first missing one ends the answer.
constexpr const char* kKeys[] = {"LOCAL_DB_DSN", "MAINFORM_BACK_COLOR", "ML_MODE",          "ML_USEFLG",
                                 "ML_ISLOCAL",   "ML_ADDUSEFLG",        "ML_EXEPROXY_PORT", "ML_SERVERIP",
                                 "ML_SERVER",    "ML_FOLDER",           "JNJI_MODE"};

std::string g_input;

void Expect(bool holds, const std::string& what) {
  if (holds) return;
  std::fprintf(stderr, "menu_fuzzer: %s\ninput (%zu bytes): ", what.c_str(), g_input.size());
  for (unsigned char c : g_input) std::fprintf(stderr, (c < 0x20 || c >= 0x7f) ? "\\x%02x" : "%c", c);
  std::fprintf(stderr, "\n");
  std::abort();
}

std::string TrimBlanks(std::string_view s) {
  size_t b = 0, e = s.size();
  while (b < e && s[b] == ' ') ++b;
  while (e > b && s[e - 1] == ' ') --e;
  return std::string(s.substr(b, e - b));
}

bool IsDigit(char c) { return c >= '0' && c <= '9'; }

// The catalogue the lines give; 0 when they are all good, otherwise the
// number of the first bad line.
int ReadCatalogue(std::string_view text, orvane::MenuCatalogue& out) {
  out.clear();
  int number = 0;
  size_t start = 0;
  while (start < text.size()) {
    size_t lf = text.find('\n', start);
    size_t end = lf == std::string_view::npos ? text.size() : lf;
    std::string_view line = text.substr(start, end - start);
    start = end + 1;
    ++number;
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    if (number == 1 && line.substr(0, 3) == "\xEF\xBB\xBF") line.remove_prefix(3);
    if (TrimBlanks(line).empty()) continue;
    std::vector<std::string> parts;
    for (size_t from = 0;;) {
      size_t comma = line.find(',', from);
      parts.push_back(TrimBlanks(line.substr(from, comma == std::string_view::npos ? line.npos : comma - from)));
      if (comma == std::string_view::npos) break;
      from = comma + 1;
    }
    if (parts.size() < 2 || parts.size() > 3) return number;
    if (parts[0].size() != 2 || !IsDigit(parts[0][0]) || !IsDigit(parts[0][1])) return number;
    if (parts.size() == 3 && parts[2] != "0" && parts[2] != "1" && !parts[2].empty()) return number;
    out.push_back({parts[0], parts[1], parts.size() == 3 && parts[2] == "1"});
  }
  return 0;
}

std::string Items(const orvane::MenuCatalogue& catalogue, const std::string& number) {
  for (size_t i = 0; i < catalogue.size(); ++i)
    if (catalogue[i].number == number) return "1," + std::to_string(i) + "," + catalogue[i].name;
  return "0,,";
}

size_t CodePoints(const std::string& s) {
  size_t n = 0;
  for (unsigned char c : s) n += (c & 0xC0) != 0x80;
  return n;
}

// What 001 answers for `ini` and `catalogue`.
std::string ExpectedAnswer(const std::string& ini, const orvane::MenuCatalogue& catalogue, bool& has_comma) {
  orvane::ConfigEntries entries = orvane::ParseConfigText(ini);
  std::string values[std::size(kKeys)];
  has_comma = false;
  for (size_t i = 0; i < std::size(kKeys); ++i) {
    auto it = entries.find(kKeys[i]);
    bool found = it != entries.end() && !it->second.empty();
    if (i == 1) {
      values[i] = found && CodePoints(it->second) == 6 ? it->second : "FFFFFF";
    } else if (!found) {
      return i == 0 ? "ERROR:READINFOFILE_SV_FOLDER" : std::string("ERROR:READINFOFILE_") + kKeys[i];
    } else {
      values[i] = it->second;
    }
    if (values[i].find(',') != std::string::npos && (i == 1 || i == 2 || i == 3 || i == 5)) has_comma = true;
  }
  return values[1] + "," + values[2] + "," + values[3] + "," + values[5] + "," + Items(catalogue, "23") + "," +
         Items(catalogue, "07");
}

struct Folder {
  std::string dir;
  orvane::FixedClock clock{orvane::LocalTime{2024, 4, 1, 10, 20, 30}};
};

Folder& Setup() {
  static Folder* f = [] {
    auto* folder = new Folder;
    const std::string dir = orvane::bench::TempFolder("orvane-menu-fuzz");
    folder->dir = dir;
    return folder;
  }();
  return *f;
}

void WriteFile(const std::string& path, std::string_view contents) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << contents;
  out.close();
  Expect(!out.fail(), "cannot write " + path);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Setup();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  g_input.assign(reinterpret_cast<const char*>(data), size);
  static const bool check_all = std::getenv("ORVANE_FUZZ_ALL") && std::string(std::getenv("ORVANE_FUZZ_ALL")) == "1";
  Folder& f = Setup();
  std::string_view input = g_input;
  std::string menu(input), ini = kFixedIni;
  if (size_t mark = input.find(kIniMark); mark != std::string_view::npos) {
    menu = std::string(input.substr(0, mark + 1));
    ini = std::string(input.substr(mark + kIniMark.size()));
  }
  WriteFile(f.dir + "/menuinfo.csv", menu);
  WriteFile(f.dir + "/ORVANE.ini", ini);

  orvane::ConfigFile config(f.dir + "/ORVANE.ini");
  orvane::ApplicationStore app;
  orvane::Status load = orvane::LoadApplicationValues(config, app);
  const bool loaded = load.ok();
  const std::string& error = load.trail();
  orvane::MenuCatalogue expected;
  int bad_line = ReadCatalogue(menu, expected);
  const orvane::MenuCatalogue& held = *app.Menuinfo();
  if (bad_line == 0) {
    Expect(loaded, "a good catalogue refused: " + error);
    Expect(held.size() == expected.size(), "the catalogue holds " + std::to_string(held.size()) + " menus, the lines " +
                                               std::to_string(expected.size()));
    std::string disp = "/";
    for (size_t i = 0; i < held.size(); ++i) {
      Expect(held[i].number == expected[i].number && held[i].name == expected[i].name &&
                 held[i].shown == expected[i].shown,
             "menu " + std::to_string(i) + " read as " + held[i].number + "," + held[i].name);
      if (expected[i].shown) disp += expected[i].number + "/";
    }
    Expect(app.DispMenu() == disp, "displayed menus " + app.DispMenu() + ", the lines give " + disp);
  } else {
    Expect(!loaded, "a catalogue with bad line " + std::to_string(bad_line) + " loaded");
    std::string head = f.dir + "/menuinfo.csv line " + std::to_string(bad_line) + ": ";
    Expect(error.substr(0, head.size()) == head, "the error names another line: " + error);
    Expect(held.empty() && app.DispMenu() == "/", "a refused catalogue left menus behind");
    expected.clear();
  }
  for (const orvane::MenuEntry& m : held) {
    Expect(m.name.find_first_of(",\n") == std::string::npos, "a menu name holds , or LF: " + m.name);
    if (check_all) Expect(m.name.find('\r') == std::string::npos, "a CR inside a menu name (finding 4): " + m.name);
  }

  orvane::Session session;
  orvane::RequestContext ctx(config, session, app, f.clock);
  orvane::ParseUrlEncoded("ReqNo=001", ctx.fields);
  orvane::RunRequest(ctx);
  const std::string& answer = ctx.response();
  bool has_comma = false;
  std::string want = ExpectedAnswer(ini, expected, has_comma);
  Expect(ctx.http_status == 200, "001 answered status " + std::to_string(ctx.http_status));
  Expect(answer == want, "001 answered \"" + answer + "\", expected \"" + want + "\"");
  if (answer.rfind("ERROR:", 0) != 0 && !has_comma) {
    size_t commas = 0;
    for (char c : answer) commas += c == ',';
    Expect(commas == 9, "001 answered " + std::to_string(commas + 1) + " items: " + answer);
  }
  Expect(answer.find('\n') == std::string::npos, "001 answered an LF");
  return 0;
}
