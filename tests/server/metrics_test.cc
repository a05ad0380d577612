// GET /metrics over real HTTP after real requests on a real database, with
// a real exe-proxy peer: the counts of what was asked, by code and answer.
#include "server/metrics.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/text.h"
#include "support/db_fixture.h"
#include "support/exe_proxy_peer.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using testing::LiveServer;

using MetricsEndpoint = testing::DbTest;

// The lines of `text` that begin with one of `prefixes`, sorted (a family
// lists its label sets in no fixed order).
std::string Lines(const std::string& text, std::initializer_list<std::string_view> prefixes) {
  std::vector<std::string> lines;
  for (const std::string& line : text::Split(text, "\n"))
    for (std::string_view p : prefixes)
      if (line.starts_with(p)) lines.push_back(line + "\n");
  std::sort(lines.begin(), lines.end());
  return text::Join(lines, "");
}

TEST_P(MetricsEndpoint, CountsRequestsByCodeAndAnswerAndTheMailProxyExchanges) {
  InsertDemo();
  testing::ExeProxyPeer peer(dir().File("mail"), dir().File("mail") + "\\");
  WriteConfig(peer.Ini());
  LiveServer server(ConfigPath(), clock());
  const std::string cookie = server.LogIn("admin", "admin");
  // The first exchange with the mail server is refused, the rest accepted.
  peer.QueueSpexeReplies({"NG: refused"});
  for (auto [query, answer_start] : {std::pair{"ReqNo=101", "200 0000,"},
                                     {"ReqNo=101&DBFlg=1", "200 0000,"},
                                     {"reqno=105&Group_cd=0001", "200 0001,"},
                                     {"ReqNo=102&S_pos=x&B_pos=1", "500 ERROR:TYPEMISMATCH S_pos"},
                                     {"ReqNo=999&User_PS=secret", "200 ERROR:NOREQUESTCODE"},
                                     {"ReqNo=201&Group_cd=0000&Group_nm=m1", "200 OK"},
                                     {"ReqNo=204&User_cd=m1&User_PS=pw&Mail_UFL=1", "200 ERROR:"},
                                     {"ReqNo=204&User_cd=m2&User_PS=pw&Mail_UFL=1", "200 OK"}}) {
    const std::string answer = server.Call(std::string("/orvane?") + query, cookie);
    EXPECT_TRUE(answer.starts_with(answer_start)) << query << ": " << answer;
  }
  // As many exchanges as the exe proxy itself saw.
  size_t exchanges = peer.Transcripts().size();
  ASSERT_GE(exchanges, 2u);

  auto res = server.Client().Get("/metrics");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 200);
  EXPECT_EQ(res->get_header_value("Content-Type"), "text/plain; version=0.0.4; charset=utf-8");
  EXPECT_EQ(Lines(res->body,
                  {"orvane_requests_total{", "orvane_mail_proxy", "orvane_sessions ",
                   "orvane_db_connections{state=\"in_use\"}", "orvane_request_duration_seconds_count{code=\"101\"}",
                   "orvane_request_duration_seconds_count{code=\"102\"}",
                   "orvane_request_duration_seconds_count{code=\"106\"}"}),
            "orvane_db_connections{state=\"in_use\"} 0\n"
            "orvane_mail_proxy_exchanges_total " +
                std::to_string(exchanges) +
                "\n"
                "orvane_mail_proxy_failures_total 1\n"
                "orvane_request_duration_seconds_count{code=\"101\"} 2\n"
                "orvane_request_duration_seconds_count{code=\"102\"} 1\n"
                "orvane_request_duration_seconds_count{code=\"106\"} 0\n"
                "orvane_requests_total{class=\"data\",code=\"101\"} 2\n"
                "orvane_requests_total{class=\"data\",code=\"105\"} 1\n"
                "orvane_requests_total{class=\"error\",code=\"102\",error=\"TYPEMISMATCH\"} 1\n"
                "orvane_requests_total{class=\"error\",code=\"204\",error=\"OTHER\"} 1\n"
                "orvane_requests_total{class=\"error\",code=\"other\",error=\"NOREQUESTCODE\"} 1\n"
                "orvane_requests_total{class=\"ok\",code=\"201\"} 1\n"
                "orvane_requests_total{class=\"ok\",code=\"204\"} 1\n"
                "orvane_sessions 1\n");
  // No field value reaches a label.
  for (const char* value : {"secret", "m1", "m2", "admin", "pw"})
    EXPECT_EQ(res->body.find(std::string("\"") + value), std::string::npos) << value;
}

TEST(MetricsErrorCode, TheCodeWithoutItsTrailAndNothingElse) {
  for (auto [answer, code] : {std::pair{"ERROR:DBSELECT", "DBSELECT"},
                              {"ERROR:DBSELECT\r\n[Com_funSelect]...", "DBSELECT"},
                              {"ERROR:TYPEMISMATCH S_pos is not a 16-bit integer", "TYPEMISMATCH"},
                              {"ERROR:READINFOFILE_ML_USEFLG", "READINFOFILE_ML_USEFLG"},
                              {"ERROR:funInsUser\r\nduplicate u01", "OTHER"},  // a routine's message: never a label
                              {"ERROR:U01,x", "OTHER"},
                              {"ERROR:", "OTHER"}})
    EXPECT_EQ(ErrorCodeOf(answer), code) << answer;
}

ORVANE_DB_TEST_SUITE(MetricsEndpoint);

}  // namespace
}  // namespace orvane
