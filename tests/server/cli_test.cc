// The orvane binary as an administrator runs it.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>
#include <string>

#include "support/temp_dir.h"

namespace orvane {
namespace {

struct CommandRun {
  std::string out;
  int status = -1;
};

CommandRun Orvane(const std::string& args) {
  CommandRun r;
  FILE* p = ::popen((std::string(ORVANE_BINARY) + " " + args + " 2>&1").c_str(), "r");
  std::array<char, 4096> buf;
  for (size_t n; (n = fread(buf.data(), 1, buf.size(), p)) > 0;) r.out.append(buf.data(), n);
  r.status = WEXITSTATUS(::pclose(p));
  return r;
}

TEST(Cli, RequestPrintsTheAnswerExactly) {
  testing::TempDir dir;
  std::string config = dir.Write("ORVANE.ini", "LOCAL_DB_DSN=\n");
  struct Case {
    std::string args;
    std::string out;
  } cases[] = {
      {"request --config " + config + " 'ReqNo=001'", "ERROR:READINFOFILE_SV_FOLDER"},
      {"request --config " + config + " 'ReqNo=1'", "ERROR:NOREQUESTCODE"},
      {"request --config " + config + " 'ReqNo=102&S_pos=&B_pos=1'",
       "ERROR:TYPEMISMATCH S_pos is not a 16-bit integer"},
  };
  for (const Case& c : cases) {
    CommandRun r = Orvane(c.args);
    EXPECT_EQ(r.status, 0) << c.args;
    EXPECT_EQ(r.out, c.out) << c.args;
  }
}

TEST(Cli, HelpExplainsEachSubcommand) {
  struct Case {
    const char* args;
    const char* must_contain;
  } cases[] = {
      {"--help", "serve"},
      {"serve --help", "--listen"},
      {"request --help", "102  GetAllUserList (S_Col, S_Type, S_OPT, S_pos, B_pos)"},
  };
  for (const Case& c : cases) {
    CommandRun r = Orvane(c.args);
    EXPECT_EQ(r.status, 0) << c.args;
    EXPECT_NE(r.out.find(c.must_contain), std::string::npos) << c.args << "\n" << r.out;
  }
  EXPECT_NE(Orvane("serve --listen nonsense").status, 0);
}

}  // namespace
}  // namespace orvane
