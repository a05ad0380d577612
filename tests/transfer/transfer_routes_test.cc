// The transfer screen's endpoints on a real server and database: export
// files, a preview and an apply of an uploaded file, behind the
// administrator check and the cross-site gate.
#include <gtest/gtest.h>
#include <openssl/evp.h>

#include <nlohmann/json.hpp>

#include "support/db_fixture.h"
#include "support/http_fixture.h"
#include "transfer/export.h"

namespace orvane {
namespace {

using json = nlohmann::json;
using testing::DbTest;
using testing::LiveServer;

using TransferRoutes = DbTest;

std::string Base64(const std::string& bytes) {
  std::string out(4 * ((bytes.size() + 2) / 3) + 1, '\0');
  int n = EVP_EncodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                          reinterpret_cast<const unsigned char*>(bytes.data()), static_cast<int>(bytes.size()));
  out.resize(static_cast<size_t>(n));
  return out;
}

TEST_P(TransferRoutes, ExportPreviewAndApplyBehindTheAdministratorCheck) {
  WriteConfig("ML_MODE=0\nIMPORT_MAX_BYTES=3000000\n");
  InsertDemo();
  LiveServer server(ConfigPath(), clock());
  auto client = server.Client();
  EXPECT_EQ(client.Get("/api/export?file=users.csv")->status, 401);
  auto login = client.Post("/login", "User_cd=admin&User_PS=admin", "application/x-www-form-urlencoded");
  ASSERT_EQ(login->body, "OK");
  httplib::Headers cookie = {{"Cookie", login->get_header_value("Set-Cookie").substr(0, 43)}};

  std::vector<transfer::ExportedFile> files;
  ASSERT_TRUE(transfer::ExportOrganisation(Dsn(), transfer::Encoding::kUtf8, files).ok());
  auto exported = client.Get("/api/export?file=users.csv", cookie);
  EXPECT_EQ(exported->status, 200);
  EXPECT_EQ(exported->body, files[1].bytes);
  EXPECT_EQ(exported->get_header_value("Content-Disposition"), "attachment; filename=\"users.csv\"");
  EXPECT_EQ(client.Get("/api/export?file=passwords.csv", cookie)->status, 400);

  const std::string upload =
      json{{"files", {{{"name", "users.csv"}, {"content", Base64("id,post\nyamada,部長\nnobody,\"a,b\"\n")}}}}}.dump();
  auto preview = client.Post("/api/import/preview", cookie, upload, "application/json");
  EXPECT_EQ(json::parse(preview->body), json::parse(R"({"can_apply": false,
              "counts": {"add": 0, "change": 1, "delete": 0, "error": 1, "unchanged": 0},
              "lines": [
                {"action": "error", "changes": [], "error": "post: must not hold a comma", "file": "users.csv",
                 "key": "nobody", "line": 3},
                {"action": "change", "changes": [{"after": "部長", "before": "課長", "column": "post"}],
                 "error": "", "file": "users.csv", "key": "yamada", "line": 2}]})"));
  auto refused = client.Post("/api/import/apply", cookie, upload, "application/json");
  EXPECT_EQ(json::parse(refused->body)["refusal"], "1 line errs; nothing was applied");

  const std::string good =
      json{{"files", {{{"name", "users.csv"}, {"content", Base64("id,post\nyamada,部長\n")}}}}}.dump();
  httplib::Headers foreign = cookie;
  foreign.emplace("Origin", "https://elsewhere.example");
  EXPECT_EQ(client.Post("/api/import/apply", foreign, good, "application/json")->status, 403);
  auto applied = json::parse(client.Post("/api/import/apply", cookie, good, "application/json")->body);
  EXPECT_EQ(applied["summary"], "applied: 0 added, 1 changed, 0 deleted; 0 mail commands failed");
  EXPECT_EQ(
      applied["report"],
      "\xEF\xBB\xBF"
      "file,line,key,action,result,password,mail_before,lists\r\nusers.csv,2,yamada,change,done,,0/yamada/0,\r\n");
  EXPECT_EQ(Rows(data::Sql() << "select POST_NM from " << data::Table("T_USER") << " where USER_ID = 'yamada'"),
            (testing::Cells{{"部長"}}));
  EXPECT_EQ(server.Log().find("yamada,change"), std::string::npos);  // reports stay out of the log

  // The import's uploads have their own limit; every other body keeps the edge's 1 MiB.
  auto padded = [](size_t bytes) {
    return json{{"files", {{{"name", "users.csv"}, {"content", Base64("id\nyamada\n")}}}},
                {"pad", std::string(bytes, 'x')}}
        .dump();
  };
  const struct {
    const char* path;
    size_t bytes;
    int status;
  } uploads[] = {
      {"/api/import/preview", 1500000, 200}, {"/api/import/preview", 3100000, 413}, {"/orvane", 1500000, 413}};
  for (const auto& u : uploads)
    EXPECT_EQ(client.Post(u.path, cookie, padded(u.bytes), "application/json")->status, u.status) << u.path << u.bytes;
}

ORVANE_DB_TEST_SUITE(TransferRoutes);

}  // namespace
}  // namespace orvane
