// The orvane binary as an administrator runs it.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "support/binary.h"
#include "support/http_fixture.h"
#include "support/temp_dir.h"

namespace orvane {
namespace {

using testing::RunBinary;

TEST(Cli, RequestPrintsTheAnswerExactly) {
  testing::TempDir dir;
  const std::string request = "request --config " + dir.Write("ORVANE.ini", "LOCAL_DB_DSN=\n");
  const std::pair<const char*, std::string> cases[] = {
      {" 'ReqNo=001'", "ERROR:READINFOFILE_SV_FOLDER"},
      {" 'ReqNo=1'", "ERROR:NOREQUESTCODE"},
      {" 'ReqNo=102&S_pos=&B_pos=1'", "ERROR:TYPEMISMATCH S_pos is not a 16-bit integer"},
  };
  for (const auto& [query, out] : cases) EXPECT_EQ(RunBinary(request + query), std::pair(0, out)) << query;
}

TEST(Cli, HelpExplainsEachSubcommand) {
  const std::pair<const char*, const char*> cases[] = {
      {"--help", "serve"},
      {"serve --help", "--listen"},
      {"passwords --help", "converts 0"},
      {"request --help",
       "208  RegistMember (Group_cd [code], User_cd [id], Primary [flag, checked], Post_cd [code, checked], ST_Ymd "
       "[date, checked], ED_Ymd [end date, checked], Upd_Ymd [date], Upd_Hms [free text])"},
      {"check-data --help", "Exit status 0 when none breaks a rule, 1 when some do"},
  };
  for (auto [args, must_contain] : cases) {
    auto [status, out] = RunBinary(args);
    EXPECT_EQ(status, 0) << args;
    EXPECT_NE(out.find(must_contain), std::string::npos) << args << "\n" << out;
  }
  EXPECT_NE(RunBinary("serve --listen nonsense").first, 0);
}

// What cannot work is refused at start with its reason and status 2: no
// configuration file, a data source odbc.ini does not define (by every
// command), a port some other program listens on (never shared).
TEST(Cli, CommandsRefuseToStartWhatCannotWork) {
  testing::TempDir dir;
  std::string undefined = dir.Write("undefined/ORVANE.ini", "LOCAL_DB_DSN=nowhere_defined\n");
  std::string empty = dir.Write("empty/ORVANE.ini", "LOCAL_DB_DSN=\n");
  std::string good = dir.Write("good/ORVANE.ini", "LOCAL_DB_DSN=cli_serve_probe\n");
  dir.Write("good/odbc.ini", "[cli_serve_probe]\nDriver=SQLite3\nDatabase=" + dir.File("good/o.db") + "\n");
  testing::LiveServer taken(empty);
  const std::string listen = "127.0.0.1:" + std::to_string(taken.port());
  std::vector<std::pair<std::string, std::string>> cases = {
      {"serve --config " + good + " --listen " + listen,
       "orvane serve: cannot listen on " + listen + ": Address already in use\n"},
  };
  for (std::string command : {"serve", "request", "init-db", "passwords", "check-data"}) {
    std::string tail = command == "request" ? " ReqNo=101" : command == "passwords" ? " --hash" : "";
    cases.emplace_back(command + " --config " + dir.File("none/ORVANE.ini") + tail,
                       "orvane " + command + ": cannot read the configuration file " + dir.File("none/ORVANE.ini") +
                           ": No such file or directory\n");
    cases.emplace_back(command + " --config " + undefined + tail,
                       "orvane " + command + ": the data source \"nowhere_defined\" (LOCAL_DB_DSN) is not defined in " +
                           dir.File("undefined") + "/odbc.ini or the system's odbc.ini\n");
    if (command != "request")  // a request answers ERROR:READINFOFILE_SV_FOLDER for itself
      cases.emplace_back(command + " --config " + empty + tail,
                         "orvane " + command + ": 環境ファイル(" + empty + ")の\"LOCAL_DB_DSN\"は無効な設定です\n");
  }
  for (const auto& [args, out] : cases) EXPECT_EQ(RunBinary(args), std::pair(2, out)) << args;
}

}  // namespace
}  // namespace orvane
