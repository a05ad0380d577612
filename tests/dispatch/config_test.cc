#include "dispatch/config.h"

#include <gtest/gtest.h>

#include <filesystem>

#include "support/temp_dir.h"

namespace orvane {
namespace {

using testing::TempDir;

struct Lookup {
  std::string value, message;
  bool found = false;
};

Lookup Find(const ConfigFile& f, std::string_view key) {
  Lookup l;
  Status s = f.ComIniFileLoad(key, l.value);
  l.found = s.ok();
  l.message = s.trail();
  return l;
}

// Each key's value, or the message that names the file and the key.
TEST(ConfigFile, LineSyntaxAndFailureMessages) {
  TempDir dir;
  const std::string path = dir.Write("ORVANE.ini",
                                     "# whole-line comment\n"
                                     "local_db_dsn = MyDsn # comment\r\n"
                                     "KEY=a=b\n"
                                     "\tTAB\tBED\t=\tv\talue\t\n"
                                     "TWICE=first\n"
                                     "twice=second\n"
                                     "   \n"
                                     "EMPTY=\n"
                                     "SPACED =  x y  \n"
                                     "NOEQUALS\n");
  const std::string file = "環境ファイル(" + path + ")";
  struct Case {
    const char* key;
    std::string value, message;
  } cases[] = {
      {"LOCAL_DB_DSN", "MyDsn", ""},
      {"key", "a", ""},
      {"TABBED", "value", ""},
      {"TWICE", "first", ""},
      {"SPACED", "x y", ""},
      {"MISSING", "", file + "に『MISSING』が存在しません。"},
      {"EMPTY", "", file + "の\"EMPTY\"は無効な設定です"},
      {"NOEQUALS", "", file + "の\"NOEQUALS\"は無効な設定です"},
  };
  ConfigFile f(path);
  for (const Case& c : cases) {
    Lookup l = Find(f, c.key);
    EXPECT_EQ(l.found, c.message.empty()) << c.key;
    EXPECT_EQ(l.value, c.value) << c.key;
    EXPECT_EQ(l.message, c.message) << c.key;
  }
  Lookup absent = Find(ConfigFile(dir.File("absent.ini")), "LOCAL_DB_DSN");
  EXPECT_FALSE(absent.found);
  EXPECT_TRUE(absent.message.starts_with("環境ファイル(" + dir.File("absent.ini") + ")")) << absent.message;
}

TEST(ConfigFile, EveryCallSeesTheFileAsItIsNow) {
  TempDir dir;
  std::string path = dir.Write("ORVANE.ini", "LOCAL_DB_DSN=one\n");
  ConfigFile f(path);
  EXPECT_EQ(Find(f, "LOCAL_DB_DSN").value, "one");
  // Same size, rewritten: the change time differs even within one second.
  dir.Write("ORVANE.ini", "LOCAL_DB_DSN=two\n");
  EXPECT_EQ(Find(f, "LOCAL_DB_DSN").value, "two");
  dir.Write("ORVANE.ini", "OTHER=x\n");
  EXPECT_FALSE(Find(f, "LOCAL_DB_DSN").found);
  std::filesystem::remove(path);
  EXPECT_FALSE(Find(f, "OTHER").found);
  dir.Write("ORVANE.ini", "OTHER=back\n");
  EXPECT_EQ(Find(f, "OTHER").value, "back");
}

}  // namespace
}  // namespace orvane
