// The HTTP edge over real connections, without a database: routes, answers
// and what the access log keeps; every limit answered with its status
// before a worker is involved; slow clients holding no worker; kept-alive
// and pipelined requests answered in order; a full server answering 503.
#include <gtest/gtest.h>

#include <fstream>
#include <thread>

#include "data/db.h"
#include "support/http_fixture.h"
#include "support/raw_client.h"
#include "support/temp_dir.h"

namespace orvane {
namespace {

using namespace std::chrono_literals;
using testing::LiveServer;
using testing::RawClient;

constexpr char kConfig[] =
    "LOCAL_DB_DSN=edge_none\nMAINFORM_BACK_COLOR=C0D0E0\nML_MODE=2\nML_USEFLG=1\nML_ISLOCAL=True\n"
    "ML_ADDUSEFLG=0\nML_EXEPROXY_PORT=5300\nML_SERVERIP=127.0.0.1\nML_SERVER=example.jp\nML_FOLDER=/srv/imail\n"
    "JNJI_MODE=0\n";
// 001 without a menu catalogue: no menus, two empty items.
constexpr char kInfoAnswer[] = "C0D0E0,2,1,0,0,,,0,,";

std::string Repeat(const std::string& s, size_t times) {
  std::string out;
  while (times--) out += s;
  return out;
}

class Edge : public ::testing::Test {
 protected:
  static HttpOptions Options(int threads, std::chrono::milliseconds head_and_body_timeout = 1s) {
    HttpOptions o{"127.0.0.1", 0, threads};
    o.limits.header_timeout = o.limits.body_timeout = head_and_body_timeout;
    return o;
  }
  // Queries open to all, as most cases here send no login.
  std::unique_ptr<LiveServer> Serve(const HttpOptions& options) {
    return std::make_unique<LiveServer>(config, SystemClock::Instance(), 20min, options, testing::OpenReads());
  }
  testing::TempDir dir;
  const std::string config = dir.Write("ORVANE.ini", kConfig);
};

TEST_F(Edge, ServerInformationFromConfigAndCatalogue) {
  dir.Write("menuinfo.csv", "01,スケジュール,1\n07,掲示板\n23,ワークフロー,1\n");
  const std::pair<std::string, const char*> cases[] = {
      {kConfig, "C0D0E0,2,1,0,1,2,ワークフロー,1,1,掲示板"},
      {"MAINFORM_BACK_COLOR=FFF\n" + std::string(kConfig), "FFFFFF,2,1,0,1,2,ワークフロー,1,1,掲示板"},
      {"LOCAL_DB_DSN=\n", "ERROR:READINFOFILE_SV_FOLDER"},
      {"LOCAL_DB_DSN=x\nML_MODE=2\n", "ERROR:READINFOFILE_ML_USEFLG"},
      {"LOCAL_DB_DSN=x\nML_MODE=2\nML_USEFLG=1\nML_ISLOCAL=True\nML_ADDUSEFLG=0\nML_EXEPROXY_PORT=1\n"
       "ML_SERVERIP=h\nML_SERVER=s\nML_FOLDER=f\n",
       "ERROR:READINFOFILE_JNJI_MODE"},
  };
  for (const auto& [text, answer] : cases) {
    dir.Write("ORVANE.ini", text);
    LiveServer server(config, testing::OpenReads());
    auto res = server.Client().Get("/orvane?ReqNo=001");
    ASSERT_TRUE(res);
    EXPECT_EQ(std::to_string(res->status) + " " + res->body, std::string("200 ") + answer);
    EXPECT_EQ(res->get_header_value("Content-Type"), "text/plain; charset=utf-8");
  }
}

TEST_F(Edge, RoutesStatusesAndFormBodiesWithoutSecretsInTheLog) {
  auto server = Serve(Options(4));
  const std::string info = std::string("200 ") + kInfoAnswer;
  struct Case {
    const char* target;
    std::optional<std::string> form;  // a POST's
    std::string answer;
  } cases[] = {
      {"/healthz", {}, "200 OK"},
      {"/orvane", {}, "200 ERROR:NOREQUESTCODE"},
      {"/orvane?ReqNo=1", {}, "200 ERROR:NOREQUESTCODE"},
      {"/orvane?ReqNo=999&DBFlg=1", {}, "200 ERROR:NOREQUESTCODE"},
      {"/orvane?reqno=001", {}, info},
      {"/orvane?ReqNo=213&User_cd=u01", {}, "401 ERROR:SESSIONCHECK"},  // a change needs an administrator
      {"/orvane?ReqNo=102&S_pos=abc&B_pos=5", {}, "500 ERROR:TYPEMISMATCH S_pos is not a 16-bit integer"},
      {"/orvane?ReqNo=102&S_pos=1&User_PS=hidden-too&cookie_Passwd=pw",
       {},
       "500 ERROR:TYPEMISMATCH B_pos is not a 16-bit integer"},
      {"/nowhere", {}, "404 Not Found"},
      {"/orvane", "ReqNo=001&User_PS=secret-word", info},
      {"/orvane?ReqNo=999", "ReqNo=001", "200 ERROR:NOREQUESTCODE"},  // the query wins over the body
  };
  for (const Case& c : cases) EXPECT_EQ(server->Call(c.target, "", c.form), c.answer) << c.target;
  // A body of another type is not read as fields.
  auto res = server->Client().Post("/orvane", "ReqNo=001", "text/plain");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->body, "ERROR:NOREQUESTCODE");
  EXPECT_EQ(res->get_header_value("Cache-Control"), "no-store");
  EXPECT_EQ(res->get_header_value("X-Content-Type-Options"), "nosniff");
  const std::string log = server->Log();
  EXPECT_NE(log.find("POST /orvane ReqNo=\"001\" 200"), std::string::npos) << log;
  EXPECT_NE(log.find("GET /orvane ReqNo=\"102\" 500"), std::string::npos) << log;
  for (const char* secret : {"secret-word", "hidden-too", "cookie_Passwd"})
    EXPECT_EQ(log.find(secret), std::string::npos) << log;
}

TEST_F(Edge, ConcurrentRequestsEachGetTheirOwnAnswer) {
  auto server = Serve(Options(4));
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < 50; ++i) {
        bool info = (i + t) % 2 == 0;
        std::string answer = server->Call(info ? "/orvane?ReqNo=001" : "/orvane?ReqNo=x" + std::to_string(i));
        if (answer != (info ? std::string("200 ") + kInfoAnswer : "200 ERROR:NOREQUESTCODE")) ++wrong;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(wrong.load(), 0);
}

// What header floods leave in memory is a figure of bench/header_flood_memory.sh.
TEST_F(Edge, EachLimitIsAnsweredWithItsStatusAndLogged) {
  auto server = Serve(Options(1));
  const std::string host = "Host: x\r\n", too_large = "HTTP/1.1 431 Request Header Fields Too Large";
  struct Case {
    std::string request, status_line;
    std::string logged;  // client, method, path and status as the access log has them
  } cases[] = {
      {"GET /healthz?a=1 HTTP/1.1\r\n" + Repeat("X-Flood: 1\r\n", 3000) + "\r\n", too_large,
       "127.0.0.1 GET /healthz ReqNo=\"\" 431"},
      // About 700 KB of short headers: the front end that kept them grew by over 100 MB.
      {"GET /healthz HTTP/1.1\r\n" + Repeat("X-a: b\r\n", 90000) + "\r\n", too_large,
       "127.0.0.1 GET /healthz ReqNo=\"\" 431"},
      {"GET /healthz HTTP/1.1\r\nX-Big: " + std::string(9000, 'a') + "\r\n\r\n", too_large,
       "127.0.0.1 GET /healthz ReqNo=\"\" 431"},
      {"GET /orvane" + std::string(9000, 'x') + " HTTP/1.1\r\n" + host + "\r\n", "HTTP/1.1 414 URI Too Long",
       "127.0.0.1 GET /orvane" + std::string(193, 'x') + " ReqNo=\"\" 414"},
      {"POST /orvane HTTP/1.1\r\nContent-Length: 99999999999999999999\r\n\r\n", "HTTP/1.1 413 Payload Too Large",
       "127.0.0.1 POST /orvane ReqNo=\"\" 413"},
      {"POST /orvane HTTP/1.1\r\nContent-Length: 1048577\r\n\r\n", "HTTP/1.1 413 Payload Too Large",
       "127.0.0.1 POST /orvane ReqNo=\"\" 413"},
      {"POST /orvane HTTP/1.1\r\nTransfer-Encoding: chunked\r\n\r\n3\r\nabc\r\n0\r\n\r\n",
       "HTTP/1.1 411 Length Required", "127.0.0.1 POST /orvane ReqNo=\"\" 411"},
      {"POST /orvane HTTP/1.1\r\nContent-Length: 12abc\r\n\r\n", "HTTP/1.1 400 Bad Request",
       "127.0.0.1 POST /orvane ReqNo=\"\" 400"},
      {"GARBAGE\r\n\r\n", "HTTP/1.1 400 Bad Request", "127.0.0.1 GARBAGE - ReqNo=\"\" 400"},
      // A head or a body that never ends: answered at the deadline.
      {"GET /healthz HTTP/1.1\r\n" + host, "HTTP/1.1 408 Request Timeout", "127.0.0.1 GET /healthz ReqNo=\"\" 408"},
      {"POST /login HTTP/1.1\r\nContent-Length: 10\r\n\r\nabc", "HTTP/1.1 408 Request Timeout",
       "127.0.0.1 POST /login ReqNo=\"\" 408"},
  };
  for (const Case& c : cases) {
    RawClient client(server->port(), 3s);  // the old front end held a wrong length 10 s
    ASSERT_TRUE(client.connected());
    client.Send(c.request);
    EXPECT_EQ(client.StatusLine(), c.status_line) << c.request.substr(0, 60);
    EXPECT_NE(server->Log().find(c.logged), std::string::npos) << c.logged << "\n" << server->Log().substr(0, 2000);
  }
  EXPECT_EQ(server->Call("/orvane?ReqNo=001"), std::string("200 ") + kInfoAnswer);  // still serving
}

TEST_F(Edge, SlowClientsHoldNoWorker) {
  auto server = Serve(Options(2));
  // Eight clients, four times the workers, each sending a header line now
  // and then: none of them gets a worker, so /healthz goes on answering.
  std::vector<std::unique_ptr<RawClient>> slow;
  for (int i = 0; i < 8; ++i) {
    slow.push_back(std::make_unique<RawClient>(server->port()));
    slow.back()->Send("GET /orvane?ReqNo=001 HTTP/1.1\r\n");
  }
  auto client = server->Client();
  client.set_read_timeout(2);
  for (int round = 0; round < 4; ++round) {
    for (auto& s : slow) s->Send("X-Slow: " + std::to_string(round) + "\r\n");
    auto res = client.Get("/healthz");
    ASSERT_TRUE(res) << "round " << round;
    EXPECT_EQ(res->body, "OK");
    std::this_thread::sleep_for(150ms);
  }
  // Past the head's deadline each is answered and closed.
  for (auto& s : slow) EXPECT_EQ(s->StatusLine(), "HTTP/1.1 408 Request Timeout");
}

TEST_F(Edge, KeptAliveAndPipelinedRequestsAreAnsweredInOrderOnOneConnection) {
  auto server = Serve(Options(2));
  RawClient raw(server->port());
  const std::string post = "POST /orvane HTTP/1.1\r\nHost: x\r\nContent-Type: application/x-www-form-urlencoded\r\n";
  // The field that matters comes last: the whole megabyte is read.
  const std::string megabyte = "pad=" + std::string((1 << 20) - 14, 'a') + "&ReqNo=001";
  struct Step {
    std::string request, answer_end, before = "";  // `before`: what an earlier answer on it ends with
  } steps[] = {
      {"GET /orvane?ReqNo=001 HTTP/1.1\r\nHost: x\r\n\r\n", kInfoAnswer},
      {"GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n", "\r\n\r\nOK"},
      {"HEAD /healthz HTTP/1.1\r\nHost: x\r\n\r\n", "Content-Length: 2\r\n\r\n"},
      {post + "Content-Length: 9\r\n\r\nReqNo=001", kInfoAnswer},
      {post + "Content-Length: 1048576\r\n\r\n" + megabyte, kInfoAnswer},
      {"GET /nowhere HTTP/1.1\r\nHost: x\r\n\r\n", "Not Found"},
      // Two in one send, the first asking for compression: both answered,
      // in order, the first as plain text.
      {"GET /orvane?ReqNo=001 HTTP/1.1\r\nHost: x\r\nAccept-Encoding: br, gzip\r\n\r\n" + post +
           "Content-Length: 7\r\n\r\nReqNo=1",
       "ERROR:NOREQUESTCODE", kInfoAnswer},
  };
  for (const Step& step : steps) {
    ASSERT_TRUE(raw.Send(step.request)) << step.request.substr(0, 60);
    std::string answer = raw.ReadUntil(step.answer_end);
    EXPECT_EQ(answer.rfind("HTTP/1.1 ", 0), 0u) << answer;
    EXPECT_TRUE(answer.ends_with(step.answer_end)) << step.request.substr(0, 60) << "\n" << answer;
    EXPECT_LT(answer.find(step.before), answer.rfind(step.answer_end)) << answer;
    EXPECT_EQ(answer.find("Connection: close"), std::string::npos) << answer;
    EXPECT_EQ(answer.find("Content-Encoding"), std::string::npos) << answer;
  }
  // The last one closes.
  raw.Send("GET /healthz HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  std::string last = raw.ReadAll();
  EXPECT_TRUE(last.ends_with("\r\n\r\nOK")) << last;
  EXPECT_NE(last.find("Connection: close\r\n"), std::string::npos) << last;
}

TEST_F(Edge, ConnectionsPastTheCapAre503AndIdleOnesEndAtTheirTimeout) {
  HttpOptions options = Options(2);
  options.limits.max_connections = 2;
  options.limits.idle_timeout = 300ms;
  auto server = Serve(options);
  RawClient first(server->port()), second(server->port());
  for (RawClient* c : {&first, &second}) {
    ASSERT_TRUE(c->Send("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n"));
    EXPECT_TRUE(c->ReadUntil("\r\n\r\nOK").ends_with("OK"));  // kept alive, now idle
  }
  std::string busy = RawClient(server->port()).ReadAll();
  EXPECT_EQ(busy.substr(0, busy.find("\r\n")), "HTTP/1.1 503 Service Unavailable");
  EXPECT_NE(busy.find("Retry-After: 1\r\n"), std::string::npos) << busy;
  EXPECT_NE(server->Log().find("127.0.0.1 - - ReqNo=\"\" 503"), std::string::npos) << server->Log();
  // Idle past their timeout, the two are closed and make room.
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(first.ReadAll(), "");
  EXPECT_EQ(second.ReadAll(), "");
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
  RawClient fourth(server->port());
  fourth.Send("GET /healthz HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(fourth.StatusLine(), "HTTP/1.1 200 OK");
}

// A SQLite database whose lock another program holds: the login's database
// work runs out of time and answers its usual code; while it waits, the
// one request allowed is taken, so the next is answered 503 at once.
TEST_F(Edge, FullServerAnswers503AndDatabaseWorkEndsAtItsLimit) {
  dir.Write("ORVANE.ini", std::string("LOCAL_DB_DSN=edge_locked\n") + kConfig);
  dir.Write("odbc.ini", "[edge_locked]\nDriver=SQLite3\nDatabase=" + dir.File("locked.db") + "\nTimeout=1000\n");
  data::UseOdbcIniBeside(dir.path());
  // The data source's own Timeout bounds what the driver does when it
  // connects; the statement limit bounds the rest.
  FILE* holder = ::popen(("sqlite3 " + dir.File("locked.db")).c_str(), "w");
  ASSERT_TRUE(holder);
  std::fputs(("CREATE TABLE T_USER (USER_ID text, PASSWORD text);\nBEGIN EXCLUSIVE;\n.system touch " +
              dir.File("locked") + "\n")
                 .c_str(),
             holder);
  std::fflush(holder);
  for (int i = 0; i < 500 && !std::ifstream(dir.File("locked")); ++i) std::this_thread::sleep_for(10ms);
  ASSERT_TRUE(std::ifstream(dir.File("locked")));

  HttpOptions options = Options(1, 10s);
  options.limits.max_requests = 1;
  options.db_timeout = 1s;
  {
    auto server = Serve(options);
    std::string answer;
    std::thread login([&] { answer = server->Call("/login", "", "User_cd=sato&User_PS=sato"); });
    std::this_thread::sleep_for(300ms);  // the login is waiting on the lock
    RawClient busy(server->port());
    busy.Send("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n");
    std::string refused = busy.ReadAll();
    EXPECT_EQ(refused.substr(0, refused.find("\r\n")), "HTTP/1.1 503 Service Unavailable");
    EXPECT_NE(refused.find("Retry-After: 1\r\n"), std::string::npos) << refused;
    login.join();
    EXPECT_EQ(answer.substr(4), "ERROR:DBSELECT");
    EXPECT_NE(server->Log().find("127.0.0.1 GET /healthz ReqNo=\"\" 503"), std::string::npos) << server->Log();
    EXPECT_EQ(server->Call("/healthz"), "200 OK");
  }
  ::pclose(holder);
  data::SetStatementTimeout(0s);
}

}  // namespace
}  // namespace orvane
