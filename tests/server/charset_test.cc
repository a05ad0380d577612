// The Shift_JIS edge over real HTTP on a real database: fields and cookies
// read as code page 932, answers sent in it, bad bytes refused before
// anything runs.
#include "server/charset.h"

#include <gtest/gtest.h>

#include "base/text.h"
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
  // The demo organisation, served in code page 932; `session` the administrator's cookie.
  void SetUp() override {
    DbTest::SetUp();
    if (IsSkipped()) return;
    InsertDemo();
    server = std::make_unique<LiveServer>(ConfigPath(), clock());
    server->state().charset = HttpCharset::kShiftJis;
    session = server->LogIn("admin", "admin");
  }
  size_t Sections() { return Rows(data::Sql() << "select SEC_CD from " << Table("T_SECTION")).size(); }
  std::unique_ptr<LiveServer> server;
  std::string session;
};

TEST_P(ShiftJisEdge, FieldsComeInAndAnswersGoOutInCodePage932) {
  auto client = server->Client();
  httplib::Headers headers{{"Cookie", session}};
  auto res =
      client.Post("/orvane", headers, std::string("ReqNo=201&Group_cd=0000&Group_nm=") + kKanjiForm, testing::kForm);
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
    EXPECT_EQ(server->Call("/orvane?ReqNo=105&Group_cd=" + c.code, session),
              "200 " + text::ReplaceAll(utf8_answer, c.utf8, c.sjis));
  }
  // The drawn tree goes out in code page 932 too.
  const std::string tree = server->Call("/application/App_A_strSec_hierarchical", session);
  EXPECT_NE(tree.find(kKanjiSjis), std::string::npos);
  EXPECT_EQ(tree.find("漢字表"), std::string::npos);
}

TEST_P(ShiftJisEdge, BytesThatAreNotCodePage932AreRefusedAndNothingRuns) {
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
    const std::string cookie = session + (*c.cookie ? "; " + std::string(c.cookie) : "");
    EXPECT_EQ(server->Call(c.target, cookie, c.body), "400 ERROR:CHARSET") << c.target << c.body << c.cookie;
  }
  EXPECT_EQ(Sections(), before);
  // Valid code page 932 in a cookie is no reason to refuse.
  EXPECT_EQ(server->Call("/orvane", session + "; pubCookie=cookie_Userid=" + kKanjiForm,
                         "ReqNo=201&Group_cd=0000&Group_nm=x"),
            "200 OK");
  EXPECT_EQ(Sections(), before + 1);
}

ORVANE_DB_TEST_SUITE(ShiftJisEdge);

}  // namespace
}  // namespace orvane
