// Changes only from our own pages, over real HTTP against a real database:
// a browser's change from another site is refused before anything runs;
// scripts, our own pages and trusted origins pass. And the access log's
// answer preview keeps whole characters.
#include <gtest/gtest.h>

#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using testing::DbTest;
using testing::LiveServer;

using Origins = DbTest;

constexpr char kTrusted[] = "https://pages.example:8443";

TEST_P(Origins, ChangesFromAnotherSiteAreRefusedAndChangeNothing) {
  InsertDemo();
  LiveServer server(ConfigPath(), AccessRule{.trusted_origins = {std::string(kTrusted) + "/admin/"}}, clock());
  auto client = server.Client();
  auto login = client.Post("/login", "User_cd=admin&User_PS=admin", "application/x-www-form-urlencoded");
  ASSERT_TRUE(login && login->body == "OK");
  const std::string cookie = login->get_header_value("Set-Cookie").substr(0, 43);
  const std::string own = "http://127.0.0.1:" + std::to_string(server.port());
  auto groups = [&] { return Rows(data::Sql() << "select SEC_CD from " << data::Table("T_SECTION")).size(); };
  struct Case {
    bool post;
    const char* sec_fetch_site;  // "" for none
    std::string origin;          // "" for none
    const char* answer;
  } cases[] = {
      {true, "cross-site", "http://evil.example", "ERROR:CROSSORIGIN"},
      {false, "cross-site", "http://evil.example", "ERROR:CROSSORIGIN"},
      {false, "cross-site", "", "ERROR:CROSSORIGIN"},                      // a link or an image on another site
      {true, "same-site", "http://admin.127.0.0.1", "ERROR:CROSSORIGIN"},  // a sibling host
      {true, "", "http://127.0.0.1:1", "ERROR:CROSSORIGIN"},               // another port
      {true, "", "https://127.0.0.1:" + std::to_string(server.port()), "ERROR:CROSSORIGIN"},
      {true, "", "null", "ERROR:CROSSORIGIN"},
      {true, "same-origin", "http://evil.example", "ERROR:CROSSORIGIN"},
      {true, "", "", "OK"},  // scripts and curl
      {false, "", "", "OK"},
      {true, "same-origin", own, "OK"},
      {false, "same-origin", "", "OK"},
      {true, "none", "", "OK"},
      {true, "", "HTTP://127.0.0.1:" + std::to_string(server.port()), "OK"},
      {true, "cross-site", kTrusted, "OK"},
      {false, "same-site", "https://PAGES.example:8443", "OK"},
  };
  for (const Case& c : cases) {
    httplib::Headers headers = {{"Cookie", cookie}};
    if (*c.sec_fetch_site) headers.emplace("Sec-Fetch-Site", c.sec_fetch_site);
    if (!c.origin.empty()) headers.emplace("Origin", c.origin);
    const char* form = "ReqNo=201&Group_cd=0000&Group_nm=新しい部";
    const size_t before = groups();
    auto res = c.post ? client.Post("/orvane", headers, form, "application/x-www-form-urlencoded")
                      : client.Get("/orvane?ReqNo=201&Group_cd=0000&Group_nm=%E6%96%B0", headers);
    ASSERT_TRUE(res);
    const bool refused = std::string_view(c.answer) == "ERROR:CROSSORIGIN";
    EXPECT_EQ(res->status, refused ? 403 : 200) << c.sec_fetch_site << " " << c.origin;
    EXPECT_EQ(res->body, c.answer) << c.sec_fetch_site << " " << c.origin;
    EXPECT_EQ(groups(), before + (refused ? 0 : 1)) << c.sec_fetch_site << " " << c.origin;
  }

  // Login and logout are changes too: no session is made or ended.
  httplib::Headers foreign = {{"Cookie", cookie}, {"Sec-Fetch-Site", "cross-site"}, {"Origin", "http://evil.example"}};
  auto res = client.Post("/login", foreign, "User_cd=admin&User_PS=admin", "application/x-www-form-urlencoded");
  ASSERT_TRUE(res);
  EXPECT_EQ(std::to_string(res->status) + " " + res->body + res->get_header_value("Set-Cookie"),
            "403 ERROR:CROSSORIGIN");
  res = client.Post("/logout", foreign, "", "application/x-www-form-urlencoded");
  ASSERT_TRUE(res);
  EXPECT_EQ(std::to_string(res->status) + " " + res->body, "403 ERROR:CROSSORIGIN");
  res = client.Get("/orvane?ReqNo=105&Group_cd=0000", {{"Cookie", cookie}});
  EXPECT_EQ(res ? res->status : 0, 200);  // still logged in
}

// The byte count of the longest prefix of `s` that is valid UTF-8; s.size()
// when all of it is.
size_t ValidUtf8Prefix(std::string_view s) {
  size_t i = 0;
  while (i < s.size()) {
    const unsigned char c = static_cast<unsigned char>(s[i]);
    const size_t n = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (n == 0 || i + n > s.size()) return i;
    for (size_t k = 1; k < n; ++k)
      if ((static_cast<unsigned char>(s[i + k]) & 0xC0) != 0x80) return i;
    i += n;
  }
  return i;
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
  for (int code = 0; code < 4; ++code) {
    auto res = server.Client().Get("/orvane?ReqNo=105&Group_cd=000" + std::to_string(code));
    ASSERT_TRUE(res);
    ASSERT_GT(res->body.size(), 40u);
  }
  const std::string log = server.Log();
  size_t lines = 0;
  for (size_t at = 0; (at = log.find("us \"", at)) != std::string::npos; ++lines) {
    at += 4;
    const std::string preview = log.substr(at, log.find('"', at) - at);
    EXPECT_EQ(ValidUtf8Prefix(preview), preview.size()) << preview;
    EXPECT_GE(preview.size(), 38u) << preview;  // at most two bytes of a character left out
    EXPECT_TRUE(preview.starts_with("000")) << preview;
  }
  EXPECT_EQ(lines, 4u) << log;
  EXPECT_EQ(ValidUtf8Prefix(log), log.size()) << log;
}

ORVANE_DB_TEST_SUITE(Origins);

}  // namespace
}  // namespace orvane
