// What the edge refuses before anything runs, over real HTTP against a real
// database: a browser's change from another site (scripts, our own pages
// and trusted origins pass), and in Shift_JIS mode bytes that are not code
// page 932 (fields and cookies read, answers sent in it). And the access
// log's answer preview keeps whole characters.
#include <gtest/gtest.h>

#include "base/text.h"
#include "base/text_checks.h"
#include "server/charset.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using data::Quoted;
using data::Table;
using testing::LiveServer;
using Origins = testing::DbTest;

constexpr char kTrusted[] = "https://pages.example:8443";

TEST_P(Origins, ChangesFromAnotherSiteAreRefusedAndChangeNothing) {
  InsertDemo();
  LiveServer server(ConfigPath(), AccessRule{.trusted_origins = {std::string(kTrusted) + "/admin/"}}, clock());
  auto client = server.Client();
  const std::string cookie = server.LogIn("admin", "admin");
  const std::string own = "http://127.0.0.1:" + std::to_string(server.port());
  auto groups = [&] { return Rows(data::Sql() << "select SEC_CD from " << data::Table("T_SECTION")).size(); };
  struct Case {
    bool post, refused;
    const char* sec_fetch_site;  // "" for none
    std::string origin;          // "" for none
  } cases[] = {
      {true, true, "cross-site", "http://evil.example"},
      {false, true, "cross-site", "http://evil.example"},
      {false, true, "cross-site", ""},                      // a link or an image on another site
      {true, true, "same-site", "http://admin.127.0.0.1"},  // a sibling host
      {true, true, "", "http://127.0.0.1:1"},               // another port
      {true, true, "", "https://127.0.0.1:" + std::to_string(server.port())},
      {true, true, "", "null"},
      {true, true, "same-origin", "http://evil.example"},
      {true, false, "", ""},  // scripts and curl
      {false, false, "", ""},
      {true, false, "same-origin", own},
      {false, false, "same-origin", ""},
      {true, false, "none", ""},
      {true, false, "", "HTTP://127.0.0.1:" + std::to_string(server.port())},
      {true, false, "cross-site", kTrusted},
      {false, false, "same-site", "https://PAGES.example:8443"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(std::string(c.sec_fetch_site) + " " + c.origin);
    httplib::Headers headers = {{"Cookie", cookie}};
    if (*c.sec_fetch_site) headers.emplace("Sec-Fetch-Site", c.sec_fetch_site);
    if (!c.origin.empty()) headers.emplace("Origin", c.origin);
    const size_t before = groups();
    auto res = c.post ? client.Post("/orvane", headers, "ReqNo=201&Group_cd=0000&Group_nm=新しい部", testing::kForm)
                      : client.Get("/orvane?ReqNo=201&Group_cd=0000&Group_nm=%E6%96%B0", headers);
    ASSERT_TRUE(res);
    EXPECT_EQ(std::to_string(res->status) + " " + res->body, c.refused ? "403 ERROR:CROSSORIGIN" : "200 OK");
    EXPECT_EQ(groups(), before + (c.refused ? 0 : 1));
  }

  // Login and logout are changes too: no session is made or ended.
  httplib::Headers foreign = {{"Cookie", cookie}, {"Sec-Fetch-Site", "cross-site"}, {"Origin", "http://evil.example"}};
  for (const char* target : {"/login", "/logout"}) {
    auto res = client.Post(target, foreign, "User_cd=admin&User_PS=admin", testing::kForm);
    ASSERT_TRUE(res);
    EXPECT_EQ(std::to_string(res->status) + " " + res->body + res->get_header_value("Set-Cookie"),
              "403 ERROR:CROSSORIGIN");
  }
  EXPECT_EQ(server.Call("/orvane?ReqNo=105&Group_cd=0000", cookie).substr(0, 4), "200 ");  // still logged in
}

TEST_P(Origins, TheLogsAnswerPreviewNeverCutsACharacter) {
  // Names shifted by zero to three ASCII bytes put the 40-byte cut at every
  // place inside a three-byte character and between two.
  for (std::string pad : {"", "a", "ab", "abc"}) {
    Insert("T_SECTION", {{"SEC_CD", "000" + std::to_string(pad.size())},
                         {"SEC_NM", pad + "東日本営業課第一販売促進グループ"},
                         {"JOI_SEC", "9999"}});
  }
  LiveServer server(ConfigPath(), testing::OpenReads(), clock());
  for (int code = 0; code < 4; ++code)
    ASSERT_GT(server.Call("/orvane?ReqNo=105&Group_cd=000" + std::to_string(code)).size(), 44u);
  const std::string log = server.Log();
  size_t lines = 0;
  for (size_t at = 0; (at = log.find("us \"", at)) != std::string::npos; ++lines) {
    at += 4;
    const std::string preview = log.substr(at, log.find('"', at) - at);
    EXPECT_TRUE(text::IsValidUtf8(preview)) << preview;
    EXPECT_GE(preview.size(), 38u) << preview;  // at most two bytes of a character left out
    EXPECT_TRUE(preview.starts_with("000")) << preview;
  }
  EXPECT_EQ(lines, 4u) << log;
  EXPECT_TRUE(text::IsValidUtf8(log)) << log;
}

ORVANE_DB_TEST_SUITE(Origins);

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
