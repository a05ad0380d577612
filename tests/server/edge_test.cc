// The HTTP edge against what an attacker sends: every limit answered with
// its status before a worker is involved, slow clients holding no worker,
// bounded memory, and a full server answering 503 at once.
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
using testing::TempDir;

constexpr char kConfig[] =
    "LOCAL_DB_DSN=edge_none\nMAINFORM_BACK_COLOR=C0D0E0\nML_MODE=2\nML_USEFLG=1\nML_ISLOCAL=True\n"
    "ML_ADDUSEFLG=0\nML_EXEPROXY_PORT=5300\nML_SERVERIP=127.0.0.1\nML_SERVER=example.jp\nML_FOLDER=/srv/imail\n"
    "JNJI_MODE=0\n";
constexpr char kInfoAnswer[] = "C0D0E0,2,1,0,0,,,0,,";

HttpOptions Options(int threads, std::chrono::milliseconds head_and_body_timeout = 1s) {
  HttpOptions o{"127.0.0.1", 0, threads};
  o.limits.header_timeout = o.limits.body_timeout = head_and_body_timeout;
  return o;
}

std::string Repeat(const std::string& s, size_t times) {
  std::string out;
  out.reserve(s.size() * times);
  for (size_t i = 0; i < times; ++i) out += s;
  return out;
}

TEST(Edge, EachLimitIsAnsweredWithItsStatusAndLogged) {
  TempDir dir;
  LiveServer server(dir.Write("ORVANE.ini", kConfig), SystemClock::Instance(), 20min, Options(1), testing::OpenReads());
  const std::string host = "Host: x\r\n";
  struct Case {
    std::string request;
    std::string status_line;
    std::string logged;  // client, method, path and status as the access log has them
  } cases[] = {
      {"GET /healthz?a=1 HTTP/1.1\r\n" + Repeat("X-Flood: 1\r\n", 3000) + "\r\n",
       "HTTP/1.1 431 Request Header Fields Too Large", "127.0.0.1 GET /healthz ReqNo=\"\" 431"},
      {"GET /healthz HTTP/1.1\r\nX-Big: " + std::string(9000, 'a') + "\r\n\r\n",
       "HTTP/1.1 431 Request Header Fields Too Large", "127.0.0.1 GET /healthz ReqNo=\"\" 431"},
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
    RawClient client(server.port(), 3s);  // the old front end held a wrong length 10 s
    ASSERT_TRUE(client.connected());
    client.Send(c.request);
    EXPECT_EQ(client.StatusLine(), c.status_line) << c.request.substr(0, 60);
    std::string log = server.Log();
    EXPECT_NE(log.find(c.logged), std::string::npos) << c.logged << "\n" << log.substr(0, 2000);
  }
  // Still serving.
  EXPECT_EQ(server.Client().Get("/orvane?ReqNo=001")->body, kInfoAnswer);
}

// What the floods leave in memory is a figure of bench/header_flood_memory.sh.
TEST(Edge, HeaderFloodsAreRefused) {
  TempDir dir;
  LiveServer server(dir.Write("ORVANE.ini", kConfig), SystemClock::Instance(), 20min, Options(2), testing::OpenReads());
  // About 700 KB of short headers on each of eight connections at once;
  // the front end that kept them grew by over 100 MB.
  const std::string flood = "GET /healthz HTTP/1.1\r\n" + Repeat("X-a: b\r\n", 90000) + "\r\n";
  std::vector<std::thread> clients;
  std::atomic<int> refused{0};
  for (int i = 0; i < 8; ++i) {
    clients.emplace_back([&] {
      RawClient client(server.port());
      client.Send(flood);
      if (client.StatusLine() == "HTTP/1.1 431 Request Header Fields Too Large") ++refused;
    });
  }
  for (auto& t : clients) t.join();
  EXPECT_EQ(refused.load(), 8);
}

TEST(Edge, SlowClientsHoldNoWorker) {
  TempDir dir;
  LiveServer server(dir.Write("ORVANE.ini", kConfig), SystemClock::Instance(), 20min, Options(2), testing::OpenReads());
  // Eight clients, four times the workers, each sending a header line now
  // and then: none of them gets a worker, so /healthz goes on answering.
  std::vector<std::unique_ptr<RawClient>> slow;
  for (int i = 0; i < 8; ++i) {
    slow.push_back(std::make_unique<RawClient>(server.port()));
    slow.back()->Send("GET /orvane?ReqNo=001 HTTP/1.1\r\n");
  }
  auto client = server.Client();
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

TEST(Edge, FormBodiesUpToTheLimitAreReadWholeAndPipelinedRequestsKeepTheirOrder) {
  TempDir dir;
  LiveServer server(dir.Write("ORVANE.ini", kConfig), SystemClock::Instance(), 20min, Options(2), testing::OpenReads());
  auto client = server.Client();
  // The field that matters comes last: the whole megabyte was read.
  std::string form = "pad=" + std::string((1 << 20) - 14, 'a') + "&ReqNo=001";
  ASSERT_EQ(form.size(), size_t{1} << 20);
  auto res = client.Post("/orvane", form, "application/x-www-form-urlencoded");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 200);
  EXPECT_EQ(res->body, kInfoAnswer);

  // Two requests in one send, and a third after: three answers in order
  // on the one connection.
  RawClient raw(server.port());
  // The first asks for compression and gets the plain text anyway.
  raw.Send(
      "GET /orvane?ReqNo=001 HTTP/1.1\r\nHost: x\r\nAccept-Encoding: br, gzip\r\n\r\nPOST /orvane HTTP/1.1\r\nHost: "
      "x\r\n"
      "Content-Type: application/x-www-form-urlencoded\r\nContent-Length: 7\r\n\r\nReqNo=1");
  std::this_thread::sleep_for(100ms);
  raw.Send("GET /healthz HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  std::string all = raw.ReadAll();
  size_t first = all.find(kInfoAnswer), second = all.find("ERROR:NOREQUESTCODE"), third = all.find("\r\n\r\nOK");
  EXPECT_NE(first, std::string::npos) << all;
  EXPECT_LT(first, second) << all;
  EXPECT_LT(second, third) << all;
  EXPECT_NE(third, std::string::npos) << all;
  EXPECT_EQ(all.find("Content-Encoding"), std::string::npos) << all;
}

TEST(Edge, KeptAliveRequestsAreAnsweredInOrderOnOneConnection) {
  TempDir dir;
  LiveServer server(dir.Write("ORVANE.ini", kConfig), SystemClock::Instance(), 20min, Options(2), testing::OpenReads());
  RawClient raw(server.port());
  struct Step {
    std::string request, answer_end;
  } steps[] = {
      {"GET /orvane?ReqNo=001 HTTP/1.1\r\nHost: x\r\n\r\n", kInfoAnswer},
      {"GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n", "\r\n\r\nOK"},
      {"HEAD /healthz HTTP/1.1\r\nHost: x\r\n\r\n", "Content-Length: 2\r\n\r\n"},
      {"POST /orvane HTTP/1.1\r\nHost: x\r\nContent-Type: application/x-www-form-urlencoded\r\n"
       "Content-Length: 9\r\n\r\nReqNo=001",
       kInfoAnswer},
      {"GET /nowhere HTTP/1.1\r\nHost: x\r\n\r\n", "Not Found"},
  };
  for (const Step& step : steps) {
    ASSERT_TRUE(raw.Send(step.request)) << step.request;
    std::string answer = raw.ReadUntil(step.answer_end);
    EXPECT_EQ(answer.rfind("HTTP/1.1 ", 0), 0u) << answer;
    EXPECT_TRUE(answer.ends_with(step.answer_end)) << step.request << "\n" << answer;
    EXPECT_EQ(answer.find("Connection: close"), std::string::npos) << answer;
  }
  // The last one closes.
  raw.Send("GET /healthz HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  std::string last = raw.ReadAll();
  EXPECT_TRUE(last.ends_with("\r\n\r\nOK")) << last;
  EXPECT_NE(last.find("Connection: close\r\n"), std::string::npos) << last;
}

TEST(Edge, ConnectionsPastTheCapAre503AndIdleOnesEndAtTheirTimeout) {
  TempDir dir;
  HttpOptions options = Options(2);
  options.limits.max_connections = 2;
  options.limits.idle_timeout = 300ms;
  LiveServer server(dir.Write("ORVANE.ini", kConfig), SystemClock::Instance(), 20min, options, testing::OpenReads());
  const std::string healthz = "GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n";
  RawClient first(server.port()), second(server.port());
  for (RawClient* c : {&first, &second}) {
    ASSERT_TRUE(c->Send(healthz));
    EXPECT_TRUE(c->ReadUntil("\r\n\r\nOK").ends_with("OK"));  // kept alive, now idle
  }
  RawClient third(server.port());
  std::string busy = third.ReadAll();
  EXPECT_EQ(busy.substr(0, busy.find("\r\n")), "HTTP/1.1 503 Service Unavailable");
  EXPECT_NE(busy.find("Retry-After: 1\r\n"), std::string::npos) << busy;
  EXPECT_NE(server.Log().find("127.0.0.1 - - ReqNo=\"\" 503"), std::string::npos) << server.Log();
  // Idle past their timeout, the two are closed and make room.
  auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(first.ReadAll(), "");
  EXPECT_EQ(second.ReadAll(), "");
  EXPECT_LT(std::chrono::steady_clock::now() - start, 2s);
  RawClient fourth(server.port());
  fourth.Send("GET /healthz HTTP/1.1\r\nHost: x\r\nConnection: close\r\n\r\n");
  EXPECT_EQ(fourth.StatusLine(), "HTTP/1.1 200 OK");
}

// A SQLite database whose lock another program holds: the login's database
// work runs out of time and answers its usual code; while it waits, the
// one request allowed is taken, so the next is answered 503 at once.
TEST(Edge, FullServerAnswers503AndDatabaseWorkEndsAtItsLimit) {
  TempDir dir;
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
    LiveServer server(dir.File("ORVANE.ini"), SystemClock::Instance(), 20min, options, testing::OpenReads());
    std::string answer;
    std::thread login([&] {
      auto res = server.Client().Post("/login", "User_cd=sato&User_PS=sato", "application/x-www-form-urlencoded");
      answer = res ? res->body : "(none)";
    });
    std::this_thread::sleep_for(300ms);  // the login is waiting on the lock
    RawClient busy(server.port());
    busy.Send("GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n");
    std::string refused = busy.ReadAll();
    EXPECT_EQ(refused.substr(0, refused.find("\r\n")), "HTTP/1.1 503 Service Unavailable");
    EXPECT_NE(refused.find("Retry-After: 1\r\n"), std::string::npos) << refused;
    login.join();
    EXPECT_EQ(answer, "ERROR:DBSELECT");
    EXPECT_NE(server.Log().find("127.0.0.1 GET /healthz ReqNo=\"\" 503"), std::string::npos) << server.Log();
    EXPECT_EQ(server.Client().Get("/healthz")->body, "OK");
  }
  ::pclose(holder);
  data::SetStatementTimeout(0s);
}

}  // namespace
}  // namespace orvane
