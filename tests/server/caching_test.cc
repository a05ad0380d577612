// Answers that cost nothing when nothing changed: the pages' files gzip-
// compressed at build time with an ETag and a 304, and the drawn tree with
// an ETag from the tree version, over real HTTP.
#include <gtest/gtest.h>

#include "support/db_fixture.h"
#include "support/http_fixture.h"
#include "support/mail_env.h"  // ReadFile
#include "support/temp_dir.h"

namespace orvane {
namespace {

using testing::LiveServer;
using testing::ReadFile;
using testing::TempDir;

TEST(Caching, FilesOfThePagesAreSentCompressedTaggedAndNotAgainWhileUnchanged) {
  TempDir dir;
  LiveServer server(dir.Write("ORVANE.ini", "LOCAL_DB_DSN=caching_none\n"));
  auto client = server.Client();
  client.set_decompress(false);
  const std::string file = ReadFile(std::string(ORVANE_SOURCE_DIR) + "/web/js/api.js");
  ASSERT_FALSE(file.empty());

  auto plain = client.Get("/js/api.js", {{"Accept-Encoding", "identity"}});
  ASSERT_TRUE(plain);
  EXPECT_EQ(std::to_string(plain->status) + " " + plain->body, "200 " + file);
  EXPECT_FALSE(plain->has_header("Content-Encoding"));
  const std::string etag = plain->get_header_value("ETag");
  EXPECT_EQ(etag.size(), 22u) << etag;  // a quoted hash of the bytes

  auto zipped = client.Get("/js/api.js", {{"Accept-Encoding", "br, gzip;q=0.8"}});
  ASSERT_TRUE(zipped);
  EXPECT_EQ(zipped->get_header_value("Content-Encoding"), "gzip");
  EXPECT_LT(zipped->body.size(), file.size());
  EXPECT_EQ(server.Client().Get("/js/api.js", {{"Accept-Encoding", "gzip"}})->body, file);  // inflated by the client
  const std::string gzip_etag = zipped->get_header_value("ETag");
  EXPECT_EQ(gzip_etag, etag.substr(0, etag.size() - 1) + "-gzip\"");

  struct Case {
    std::string accept, if_none_match;
    int status;
    std::string encoding;
  } cases[] = {
      {"identity", etag, 304, ""}, {"gzip", gzip_etag, 304, ""},       {"gzip", "\"other\", W/" + gzip_etag, 304, ""},
      {"gzip", "*", 304, ""},      {"gzip;q=0", gzip_etag, 200, ""},  // the plain file is another version
      {"gzip", etag, 200, "gzip"}, {"identity", "\"other\"", 200, ""},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.accept + " " + c.if_none_match);
    auto res = client.Get("/js/api.js", {{"Accept-Encoding", c.accept}, {"If-None-Match", c.if_none_match}});
    ASSERT_TRUE(res);
    EXPECT_EQ(res->status, c.status);
    EXPECT_EQ(res->get_header_value("Content-Encoding"), c.encoding);
    EXPECT_EQ(res->body.empty(), c.status == 304);
    EXPECT_EQ(res->get_header_value("Cache-Control"), "no-cache");
    EXPECT_EQ(res->get_header_value("Vary"), "Accept-Encoding");
  }
  EXPECT_NE(server.Log().find("GET /js/api.js ReqNo=\"\" 304"), std::string::npos) << server.Log();

  // A name that carries its content's hash may be kept for a year; the
  // index page may not be kept unasked.
  TempDir web;
  web.Write("app.0123abcd.js", "export {};\n");
  web.Write("index.html", "<!doctype html>\n");
  server.state().web_root = web.path();
  auto hashed = client.Get("/app.0123abcd.js");
  ASSERT_TRUE(hashed);
  EXPECT_EQ(hashed->get_header_value("Cache-Control"), "public, max-age=31536000, immutable");
  auto index = client.Get("/");
  ASSERT_TRUE(index);
  EXPECT_EQ(index->body, "<!doctype html>\n");
  EXPECT_EQ(index->get_header_value("Cache-Control"), "no-cache");
  auto again = client.Get("/", {{"If-None-Match", index->get_header_value("ETag")}});
  ASSERT_TRUE(again);
  EXPECT_EQ(again->status, 304);
  // Answers are never kept.
  EXPECT_EQ(client.Get("/healthz")->get_header_value("Cache-Control"), "no-store");
}

using TreeCaching = testing::DbTest;

TEST_P(TreeCaching, TheDrawnTreeAnswers304UntilTheTreeChanges) {
  InsertDemo();
  LiveServer server(ConfigPath(), clock());
  auto client = server.Client();
  const std::string cookie = server.LogIn("admin", "admin"), tree = "/application/App_A_strSec_hierarchical";
  auto first = client.Get(tree, {{"Cookie", cookie}});
  ASSERT_TRUE(first);
  EXPECT_EQ(first->status, 200);
  const std::string etag = first->get_header_value("ETag");
  EXPECT_TRUE(etag.starts_with("\"tree-")) << etag;
  EXPECT_EQ(first->get_header_value("Cache-Control"), "private, no-cache");
  auto unchanged = client.Get(tree, {{"Cookie", cookie}, {"If-None-Match", etag}});
  ASSERT_TRUE(unchanged);
  EXPECT_EQ(std::to_string(unchanged->status) + " " + unchanged->body, "304 ");
  // Without a login the tag opens nothing.
  auto anonymous = client.Get(tree, {{"If-None-Match", etag}});
  ASSERT_TRUE(anonymous);
  EXPECT_EQ(anonymous->status, 401);

  // A move changes the tree: the old tag gets the new tree and a new tag.
  ASSERT_EQ(server.Call("/orvane", cookie, "ReqNo=212&Group_cd1=0005&Group_cd2=0002"), "200 OK");
  auto changed = client.Get(tree, {{"Cookie", cookie}, {"If-None-Match", etag}});
  ASSERT_TRUE(changed);
  EXPECT_EQ(changed->status, 200);
  EXPECT_NE(changed->get_header_value("ETag"), etag);
  EXPECT_NE(changed->body.find("0000/0002/0005"), std::string::npos) << changed->body;
  auto again = client.Get(tree, {{"Cookie", cookie}, {"If-None-Match", changed->get_header_value("ETag")}});
  ASSERT_TRUE(again);
  EXPECT_EQ(again->status, 304);
}

ORVANE_DB_TEST_SUITE(TreeCaching);

}  // namespace
}  // namespace orvane
