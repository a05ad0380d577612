// The Shift_JIS edge over real HTTP on a real database: fields and cookies
// read as code page 932, answers sent in it, bad bytes refused before
// anything runs.
#include <gtest/gtest.h>

#include "base/text.h"
#include "server/charset.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using data::Quoted;
using data::Table;
using testing::LiveServer;

// 漢字表 in code page 932 (表's second byte is 0x5C, a backslash in ASCII).
constexpr char kKanjiSjis[] = "\x8a\xbf\x8e\x9a\x95\x5c";
constexpr char kKanjiForm[] = "%8A%BF%8E%9A%95%5C";

class ShiftJisEdge : public testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (IsSkipped()) return;
    InsertDemo();
  }
  // Logs in as the demo administrator; the session cookie to send.
  static std::string LogIn(httplib::Client& client) {
    auto res = client.Post("/login", "User_cd=admin&User_PS=admin", "application/x-www-form-urlencoded");
    EXPECT_TRUE(res && res->body == "OK");
    std::string cookie = res ? res->get_header_value("Set-Cookie") : "";
    return cookie.substr(0, cookie.find(';'));
  }
  size_t Sections() { return Rows(data::Sql() << "select SEC_CD from " << Table("T_SECTION")).size(); }
};

TEST_P(ShiftJisEdge, FieldsComeInAndAnswersGoOutInCodePage932) {
  LiveServer server(ConfigPath(), clock());
  server.state().charset = HttpCharset::kShiftJis;
  auto client = server.Client();
  httplib::Headers headers{{"Cookie", LogIn(client)}};

  auto res = client.Post("/orvane", headers, std::string("ReqNo=201&Group_cd=0000&Group_nm=") + kKanjiForm,
                         "application/x-www-form-urlencoded");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->body, "OK");
  EXPECT_EQ(res->get_header_value("Content-Type"), "text/plain; charset=Shift_JIS");
  testing::Cells stored = Rows(data::Sql() << "select SEC_CD, SEC_NM from " << Table("T_SECTION")
                                           << " where SEC_NM = " << Quoted("漢字表"));
  ASSERT_EQ(stored.size(), 1u);
  const std::string code = stored[0][0];

  // The answer is the UTF-8 one with every character in code page 932; a
  // character code page 932 lacks (the euro sign) is sent as "?".
  Insert("T_SECTION", {{"SEC_CD", "0990"}, {"JOI_SEC", "0000"}, {"SEC_NM", "表€"}, {"SEC_TREE", "0000/0990"}});
  struct Case {
    std::string code, utf8, sjis;
  } cases[] = {{code, "漢字表", kKanjiSjis}, {"0990", "表€", "\x95\x5c?"}};
  for (const Case& c : cases) {
    std::string utf8_answer = Request("ReqNo=105&Group_cd=" + c.code);
    ASSERT_NE(utf8_answer.find(c.utf8), std::string::npos) << utf8_answer;
    res = client.Get("/orvane?ReqNo=105&Group_cd=" + c.code, headers);
    ASSERT_TRUE(res);
    EXPECT_EQ(res->body, text::ReplaceAll(utf8_answer, c.utf8, c.sjis)) << c.code;
  }
  // The drawn tree goes out in code page 932 too.
  res = client.Get("/application/App_A_strSec_hierarchical", headers);
  ASSERT_TRUE(res);
  EXPECT_NE(res->body.find(kKanjiSjis), std::string::npos);
  EXPECT_EQ(res->body.find("漢字表"), std::string::npos);
}

TEST_P(ShiftJisEdge, BytesThatAreNotCodePage932AreRefusedAndNothingRuns) {
  LiveServer server(ConfigPath(), clock());
  server.state().charset = HttpCharset::kShiftJis;
  auto client = server.Client();
  const std::string session = LogIn(client);
  const size_t before = Sections();
  struct Case {
    const char* target;
    const char* body;    // form body, may be empty
    const char* cookie;  // beside the session cookie
  } cases[] = {
      {"/orvane?ReqNo=201&Group_cd=0000&Group_nm=%82", "", ""},         // a lead byte cut off
      {"/orvane", "ReqNo=201&Group_cd=0000&Group_nm=%81%20", ""},       // no valid second byte
      {"/orvane", "ReqNo=201&Group_cd=0000&Group_nm=%A0", ""},          // a byte the code page lacks
      {"/orvane", "ReqNo=201&Group_cd=0000&Group%FF_nm=x", ""},         // in a field's name
      {"/orvane", "ReqNo=201&Group_cd=0000&Group_nm=x", "pub=a=%82"},   // in a cookie, percent-encoded
      {"/orvane", "ReqNo=201&Group_cd=0000&Group_nm=x", "pub=a=\x82"},  // in a cookie, raw
  };
  for (const Case& c : cases) {
    httplib::Headers headers{{"Cookie", session + (*c.cookie ? "; " + std::string(c.cookie) : "")}};
    auto res = client.Post(c.target, headers, c.body, "application/x-www-form-urlencoded");
    ASSERT_TRUE(res) << c.target << c.body;
    EXPECT_EQ(res->status, 400) << c.body << c.cookie;
    EXPECT_EQ(res->body, "ERROR:CHARSET") << c.body << c.cookie;
  }
  EXPECT_EQ(Sections(), before);
  // Valid code page 932 in a cookie is no reason to refuse.
  httplib::Headers headers{{"Cookie", session + "; pubCookie=cookie_Userid=" + kKanjiForm}};
  auto res = client.Post("/orvane", headers, "ReqNo=201&Group_cd=0000&Group_nm=x", "application/x-www-form-urlencoded");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->body, "OK");
  EXPECT_EQ(Sections(), before + 1);
}

ORVANE_DB_TEST_SUITE(ShiftJisEdge);

}  // namespace
}  // namespace orvane
