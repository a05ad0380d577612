// Changes only from our own pages, over real HTTP against a real database:
// a browser's change from another site is refused before anything runs;
// scripts, our own pages and trusted origins pass. And the access log's
// answer preview keeps whole characters.
#include <gtest/gtest.h>

#include "base/text_checks.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

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

}  // namespace
}  // namespace orvane
