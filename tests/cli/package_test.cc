// The Debian package's files as an administrator gets them: the systemd unit
// against the program's own options and defaults, and the shipped
// configuration run as it is by the real program.
#include <gtest/gtest.h>

#include <filesystem>
#include <map>
#include <regex>
#include <string>

#include "base/text.h"
#include "support/binary.h"
#include "support/mail_env.h"  // ReadFile
#include "support/temp_dir.h"

namespace orvane {
namespace {

namespace fs = std::filesystem;
using testing::ReadFile;

const std::string kPackaging = std::string(ORVANE_SOURCE_DIR) + "/packaging";

// "Key=Value" lines of a unit file or an ini file (comments and sections
// skipped); a key given twice keeps its first value.
std::map<std::string, std::string> Keys(const std::string& text) {
  std::map<std::string, std::string> keys;
  for (std::string line : text::Split(text, "\n")) {
    if (line.empty() || line[0] == '#' || line[0] == ';' || line[0] == '[') continue;
    size_t eq = line.find('=');
    if (eq != std::string::npos) keys.emplace(line.substr(0, eq), line.substr(eq + 1));
  }
  return keys;
}

// The "--option" defaults `orvane serve --help` prints ("--listen TEXT=...").
std::map<std::string, std::string> ServeDefaults() {
  std::map<std::string, std::string> defaults;
  std::string help = testing::RunBinary("serve --help").second;
  std::regex option(R"(^\s+(--[a-z-]+) [^=\s]+(?: in \[[^\]]*\])?=(\S+))");
  for (const std::string& line : text::Split(help, "\n")) {
    std::smatch m;
    if (std::regex_search(line, m, option)) defaults[m[1]] = m[2];
  }
  return defaults;
}

TEST(Package, TheUnitStartsTheProgramWithItsDefaultsAndTheShippedConfiguration) {
  auto unit = Keys(ReadFile(kPackaging + "/orvane.service"));
  EXPECT_EQ(unit["ExecStart"], "/usr/bin/orvane serve --config /etc/orvane/ORVANE.ini --listen 127.0.0.1:8080");
  EXPECT_EQ(unit["KillSignal"], "SIGTERM");  // what serve stops cleanly on

  // Every option the unit passes is one the program has; the address is
  // the program's default and the file has the default's name.
  auto defaults = ServeDefaults();
  ASSERT_EQ(defaults["--listen"], "127.0.0.1:8080");
  ASSERT_EQ(fs::path(defaults["--config"]).filename(), "ORVANE.ini");
  std::vector<std::string> args = text::Split(unit["ExecStart"], " ");
  for (size_t i = 2; i + 1 < args.size(); i += 2) EXPECT_TRUE(defaults.count(args[i])) << args[i];

  // The data source the configuration names keeps its database in the one
  // folder the unit may write.
  auto ini = Keys(ReadFile(kPackaging + "/etc/ORVANE.ini"));
  std::string odbc = ReadFile(kPackaging + "/etc/odbc.ini");
  std::string section = "[" + ini["LOCAL_DB_DSN"] + "]\n";
  ASSERT_NE(odbc.find(section), std::string::npos) << ini["LOCAL_DB_DSN"];
  auto source = Keys(odbc.substr(odbc.find(section) + section.size()));
  EXPECT_EQ(source["Driver"], "SQLite3");
  EXPECT_EQ(fs::path(source["Database"]).parent_path(), unit["ReadWritePaths"]);
}

TEST(Package, TheShippedConfigurationWorksAsItIs) {
  testing::TempDir dir;
  for (const char* name : {"ORVANE.ini", "menuinfo.csv"}) dir.Write(name, ReadFile(kPackaging + "/etc/" + name));
  dir.Write("odbc.ini", text::ReplaceAll(ReadFile(kPackaging + "/etc/odbc.ini"), "/var/lib/orvane/", dir.path() + "/"));
  const std::string config = " --config " + dir.File("ORVANE.ini");
  EXPECT_EQ(testing::RunBinary("init-db" + config).first, 0);
  EXPECT_TRUE(fs::exists(dir.File("orvane.db")));
  EXPECT_EQ(testing::RunBinary("request" + config + " 'ReqNo=101'"), std::pair(0, std::string(",,")));  // no sections
  EXPECT_EQ(testing::RunBinary("request" + config + " 'ReqNo=001'"),
            std::pair(0, std::string("FFFFFF,0,0,0,1,11,ワークフロー,1,6,ToDo")));
}

}  // namespace
}  // namespace orvane
