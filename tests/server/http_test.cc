#include <gtest/gtest.h>

#include <thread>

#include "support/http_fixture.h"
#include "support/temp_dir.h"

namespace orvane {
namespace {

using testing::LiveServer;
using testing::OpenReads;
using testing::TempDir;

constexpr char kFullConfig[] =
    "LOCAL_DB_DSN=orvane_demo\n"
    "MAINFORM_BACK_COLOR=C0D0E0\n"
    "ML_MODE=2\n"
    "ML_USEFLG=1\n"
    "ML_ISLOCAL=True\n"
    "ML_ADDUSEFLG=0\n"
    "ML_EXEPROXY_PORT=5300\n"
    "ML_SERVERIP=127.0.0.1\n"
    "ML_SERVER=example.jp\n"
    "ML_FOLDER=/srv/imail\n"
    "JNJI_MODE=0\n";

TEST(Http, ServerInformationFromConfigAndCatalogue) {
  TempDir dir;
  dir.Write("menuinfo.csv", "01,スケジュール,1\n07,掲示板\n23,ワークフロー,1\n");
  struct Case {
    std::string config;
    const char* answer;
  } cases[] = {
      {kFullConfig, "C0D0E0,2,1,0,1,2,ワークフロー,1,1,掲示板"},
      {"MAINFORM_BACK_COLOR=FFF\n" + std::string(kFullConfig), "FFFFFF,2,1,0,1,2,ワークフロー,1,1,掲示板"},
      {"LOCAL_DB_DSN=\n", "ERROR:READINFOFILE_SV_FOLDER"},
      {"LOCAL_DB_DSN=x\nML_MODE=2\n", "ERROR:READINFOFILE_ML_USEFLG"},
      {"LOCAL_DB_DSN=x\nML_MODE=2\nML_USEFLG=1\nML_ISLOCAL=True\nML_ADDUSEFLG=0\nML_EXEPROXY_PORT=1\n"
       "ML_SERVERIP=h\nML_SERVER=s\nML_FOLDER=f\n",
       "ERROR:READINFOFILE_JNJI_MODE"},
  };
  for (const Case& c : cases) {
    dir.Write("ORVANE.ini", c.config);
    LiveServer server(dir.File("ORVANE.ini"), OpenReads());
    auto res = server.Client().Get("/orvane?ReqNo=001");
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, 200);
    EXPECT_EQ(res->body, c.answer);
    EXPECT_EQ(res->get_header_value("Content-Type"), "text/plain; charset=utf-8");
  }
}

TEST(Http, MenusMissingFromTheCatalogueGiveZeroAndTwoEmptyItems) {
  TempDir dir;
  dir.Write("ORVANE.ini", kFullConfig);
  LiveServer server(dir.File("ORVANE.ini"), OpenReads());  // no menuinfo.csv
  EXPECT_EQ(server.Client().Get("/orvane?ReqNo=001")->body, "C0D0E0,2,1,0,0,,,0,,");
}

TEST(Http, RoutesAndStatuses) {
  TempDir dir;
  dir.Write("ORVANE.ini", kFullConfig);
  LiveServer server(dir.File("ORVANE.ini"), OpenReads());
  auto client = server.Client();
  struct Case {
    const char* target;
    int status;
    const char* body;
  } cases[] = {
      {"/healthz", 200, "OK"},
      {"/orvane", 200, "ERROR:NOREQUESTCODE"},
      {"/orvane?ReqNo=1", 200, "ERROR:NOREQUESTCODE"},
      {"/orvane?ReqNo=999&DBFlg=1", 200, "ERROR:NOREQUESTCODE"},
      {"/orvane?reqno=001", 200, "C0D0E0,2,1,0,0,,,0,,"},
      {"/orvane?ReqNo=213&User_cd=u01", 401, "ERROR:SESSIONCHECK"},  // a change needs an administrator
      {"/orvane?ReqNo=102&S_pos=abc&B_pos=5", 500, "ERROR:TYPEMISMATCH S_pos is not a 16-bit integer"},
      {"/orvane?ReqNo=102&S_pos=1", 500, "ERROR:TYPEMISMATCH B_pos is not a 16-bit integer"},
      {"/nowhere", 404, "Not Found"},
  };
  for (const Case& c : cases) {
    auto res = client.Get(c.target);
    ASSERT_TRUE(res) << c.target;
    EXPECT_EQ(res->status, c.status) << c.target;
    EXPECT_EQ(res->body, c.body) << c.target;
  }
}

TEST(Http, PostFormBodyAddsFieldsAfterTheQuery) {
  TempDir dir;
  dir.Write("ORVANE.ini", kFullConfig);
  LiveServer server(dir.File("ORVANE.ini"), OpenReads());
  auto client = server.Client();
  auto res = client.Post("/orvane", "ReqNo=001&User_PS=secret-word", "application/x-www-form-urlencoded");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->body, "C0D0E0,2,1,0,0,,,0,,");
  EXPECT_EQ(res->get_header_value("Cache-Control"), "no-store");
  EXPECT_EQ(res->get_header_value("X-Content-Type-Options"), "nosniff");
  // The query wins over the body for a field sent twice.
  res = client.Post("/orvane?ReqNo=999", "ReqNo=001", "application/x-www-form-urlencoded");
  EXPECT_EQ(res->body, "ERROR:NOREQUESTCODE");
  // A body of another type is not read as fields.
  res = client.Post("/orvane", "ReqNo=001", "text/plain");
  EXPECT_EQ(res->body, "ERROR:NOREQUESTCODE");

  client.Get("/orvane?ReqNo=102&S_pos=x&B_pos=1&User_PS=hidden-too&cookie_Passwd=pw");
  std::string log = server.Log();
  EXPECT_NE(log.find("POST /orvane ReqNo=\"001\" 200"), std::string::npos) << log;
  EXPECT_NE(log.find("GET /orvane ReqNo=\"102\" 500"), std::string::npos) << log;
  EXPECT_EQ(log.find("secret-word"), std::string::npos) << log;
  EXPECT_EQ(log.find("hidden-too"), std::string::npos) << log;
  EXPECT_EQ(log.find("cookie_Passwd"), std::string::npos) << log;
}

TEST(Http, ConcurrentRequestsEachGetTheirOwnAnswer) {
  TempDir dir;
  dir.Write("ORVANE.ini", kFullConfig);
  LiveServer server(dir.File("ORVANE.ini"), OpenReads());
  std::atomic<int> wrong{0};
  std::vector<std::thread> threads;
  for (int t = 0; t < 6; ++t) {
    threads.emplace_back([&, t] {
      auto client = server.Client();
      for (int i = 0; i < 50; ++i) {
        bool info = (i + t) % 2 == 0;
        auto res = client.Get(info ? "/orvane?ReqNo=001" : "/orvane?ReqNo=x" + std::to_string(i));
        if (!res || res->body != (info ? "C0D0E0,2,1,0,0,,,0,," : "ERROR:NOREQUESTCODE")) ++wrong;
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace orvane
