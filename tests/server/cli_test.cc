// The orvane binary as an administrator runs it.
#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "support/binary.h"
#include "support/temp_dir.h"

namespace orvane {
namespace {

struct CommandRun {
  std::string out;
  int status = -1;
};

CommandRun Orvane(const std::string& args) {
  auto [status, out] = testing::RunBinary(args);
  return {out, status};
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
      {"passwords --help", "converts 0"},
      {"request --help",
       "208  RegistMember (Group_cd [code], User_cd [id], Primary [flag, checked], Post_cd [code, checked], ST_Ymd "
       "[date, checked], ED_Ymd [end date, checked], Upd_Ymd [date], Upd_Hms [free text])"},
      {"check-data --help", "Exit status 0 when none breaks a rule, 1 when some do"},
  };
  for (const Case& c : cases) {
    CommandRun r = Orvane(c.args);
    EXPECT_EQ(r.status, 0) << c.args;
    EXPECT_NE(r.out.find(c.must_contain), std::string::npos) << c.args << "\n" << r.out;
  }
  EXPECT_NE(Orvane("serve --listen nonsense").status, 0);
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
  int taken = ::socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t len = sizeof addr;
  ASSERT_EQ(::bind(taken, reinterpret_cast<sockaddr*>(&addr), sizeof addr), 0);
  ASSERT_EQ(::listen(taken, 1), 0);
  ::getsockname(taken, reinterpret_cast<sockaddr*>(&addr), &len);
  const std::string port = std::to_string(ntohs(addr.sin_port));
  struct Case {
    std::string args, out;
  } cases[] = {
      {"serve --config " + good + " --listen 127.0.0.1:" + port,
       "orvane serve: cannot listen on 127.0.0.1:" + port + ": Address already in use\n"},
  };
  std::vector<Case> all(std::begin(cases), std::end(cases));
  for (std::string command : {"serve", "request", "init-db", "passwords", "check-data"}) {
    std::string tail = command == "request" ? " ReqNo=101" : command == "passwords" ? " --hash" : "";
    all.push_back({command + " --config " + dir.File("none/ORVANE.ini") + tail,
                   "orvane " + command + ": cannot read the configuration file " + dir.File("none/ORVANE.ini") +
                       ": No such file or directory\n"});
    all.push_back({command + " --config " + undefined + tail,
                   "orvane " + command + ": the data source \"nowhere_defined\" (LOCAL_DB_DSN) is not defined in " +
                       dir.File("undefined") + "/odbc.ini or the system's odbc.ini\n"});
    if (command != "request")  // a request answers ERROR:READINFOFILE_SV_FOLDER for itself
      all.push_back({command + " --config " + empty + tail,
                     "orvane " + command + ": 環境ファイル(" + empty + ")の\"LOCAL_DB_DSN\"は無効な設定です\n"});
  }
  for (const Case& c : all) {
    CommandRun r = Orvane(c.args);
    EXPECT_EQ(r.status, 2) << c.args;
    EXPECT_EQ(r.out, c.out) << c.args;
  }
  ::close(taken);
}

}  // namespace
}  // namespace orvane
