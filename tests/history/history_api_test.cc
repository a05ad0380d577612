// Reading the history on a real database: GET /api/history over real HTTP
// (newest first, each filter, paging with `before`, bad parameters refused,
// the administrator check, an entry's words and images) and `orvane
// history` from a shell (one entry a line, filters, --purge).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "base/text.h"
#include "support/binary.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using json = nlohmann::json;
using testing::LiveServer;

class HistoryApi : public testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    InsertDemo();
    server_ = std::make_unique<LiveServer>(ConfigPath(), clock());
    admin_ = server_->LogIn("admin", "admin");
    // Four entries over three days; the last one refused.
    const struct {
      LocalTime at;
      const char* form;
      const char* answer;
    } changes[] = {
        {{2024, 4, 1, 9, 0, 0}, "ReqNo=202&Group_cd=0002&Group_nm=総務課&Disp_NM=総務部&M_LIST=", "OK"},
        {{2024, 4, 2, 9, 0, 0}, "ReqNo=207&Group_cd=0002&User_cd=sato", "OK"},
        {{2024, 4, 3, 9, 0, 0}, "ReqNo=213&User_cd=yamada&User_Menu=%2F01%2F", "OK"},
        {{2024, 4, 3, 9, 30, 0},
         "ReqNo=207&Group_cd=0009&User_cd=sato",
         "ERROR:RECINSERTfunInsCirMember\r\nno such section: 0009"},
    };
    for (const auto& c : changes) {
      clock().Set(c.at);
      ASSERT_EQ(server_->Call("/orvane", admin_, c.form), std::string("200 ") + c.answer) << c.form;
    }
  }
  std::string Get(const std::string& target, bool logged_in = true) {
    return server_->Call(target, logged_in ? admin_ : "");
  }
  // "code time, ..." of a page, and "next" when there is one.
  std::string Page(const std::string& query, long* next = nullptr) {
    std::string answer = Get("/api/history" + query);
    if (!answer.starts_with("200 ")) return answer;
    json j = json::parse(answer.substr(4));
    std::string out;
    for (const json& e : j["entries"])
      out += (out.empty() ? "" : ", ") + e["code"].get<std::string>() + " " + e["time"].get<std::string>().substr(5);
    if (!j["next"].is_null()) out += " | next";
    if (next) *next = j["next"].is_null() ? 0 : j["next"].get<long>();
    return out;
  }

  std::unique_ptr<LiveServer> server_;
  std::string admin_;
};

TEST_P(HistoryApi, FiltersAndPagesNewestFirst) {
  const struct {
    const char* query;
    const char* page;
  } cases[] = {
      {"", "207 04-03 09:30:00, 213 04-03 09:00:00, 207 04-02 09:00:00, 202 04-01 09:00:00"},
      {"?code=207", "207 04-03 09:30:00, 207 04-02 09:00:00"},
      {"?group=0002", "207 04-02 09:00:00, 202 04-01 09:00:00"},
      {"?about=sato", "207 04-02 09:00:00"},
      {"?about=yamada&user=admin", "213 04-03 09:00:00"},
      {"?since=2024-04-02&until=2024-04-02", "207 04-02 09:00:00"},
      {"?since=2024-04-03", "207 04-03 09:30:00, 213 04-03 09:00:00"},
      {"?until=2024-04-01", "202 04-01 09:00:00"},
      {"?user=sato", ""},
      {"?limit=2", "207 04-03 09:30:00, 213 04-03 09:00:00 | next"},
      {"?limit=0", R"(400 {"error":"ERROR:INVALIDVALUE","message":"limit: a whole number from 1 to 200"})"},
      {"?limit=201", R"(400 {"error":"ERROR:INVALIDVALUE","message":"limit: a whole number from 1 to 200"})"},
      {"?since=2024-4-1", R"(400 {"error":"ERROR:INVALIDVALUE","message":"since: a date as YYYY-MM-DD"})"},
      {"?before=x", R"(400 {"error":"ERROR:INVALIDVALUE","message":"before: an entry number"})"},
  };
  for (const auto& c : cases) EXPECT_EQ(Page(c.query), c.page) << c.query;
  long next = 0;
  Page("?limit=2", &next);
  EXPECT_EQ(Page("?limit=2&before=" + std::to_string(next)), "207 04-02 09:00:00, 202 04-01 09:00:00");
  EXPECT_EQ(Get("/api/history", false), R"(401 {"error":"ERROR:SESSIONCHECK"})");
}

TEST_P(HistoryApi, AnEntrySaysWhoWhenWhatAndTheValuesBeforeAndAfter) {
  json rename = json::parse(Get("/api/history?code=202").substr(4))["entries"][0];
  EXPECT_EQ(rename["user"], "admin");
  EXPECT_EQ(rename["user_name"], "管理者");
  EXPECT_EQ(rename["address"], "127.0.0.1");
  EXPECT_EQ(rename["operation"], "group saved");
  EXPECT_EQ(rename["answer"], "OK");
  // 202 without BUSHO_Set clears the department, as it always has.
  EXPECT_EQ(rename["summary"],
            "group 総務課 (0002): name 総務部 -> 総務課, path / 総務部 -> / 総務課, "
            "department B0002 -> (empty)");
  ASSERT_EQ(rename["changes"].size(), 1u);
  const json& change = rename["changes"][0];
  EXPECT_EQ(change["table"], "T_SECTION");
  EXPECT_EQ(change["action"], "update");
  EXPECT_EQ(change["key"], "0002");
  EXPECT_EQ(change["before"]["SEC_NM"], "総務部");
  EXPECT_EQ(change["after"]["SEC_NM"], "総務課");
  EXPECT_EQ(rename["undoable"], true);
  EXPECT_TRUE(rename["undone_by"].is_null());

  json refused = json::parse(Get("/api/history?limit=1").substr(4))["entries"][0];
  EXPECT_EQ(refused["summary"], "refused: ERROR:RECINSERTfunInsCirMember");
  EXPECT_EQ(refused["changes"], json::array());
  EXPECT_EQ(refused["undoable"], false);
}

// The program runs on today's clock: every entry here is far older than 90 days.
TEST_P(HistoryApi, TheCommandPrintsOneEntryALineNewestFirstAndPurges) {
  // The lines, each line's leading id replaced by "#".
  auto lines = [&](const std::string& args) {
    auto [status, out] = testing::RunBinary("history --config " + ConfigPath() + " " + args);
    EXPECT_EQ(status, 0) << out;
    std::string lines;
    for (const std::string& line : text::Split(out, "\n")) {
      if (line.empty()) continue;
      size_t blank = line.find(' ');
      EXPECT_GT(std::stol(line.substr(0, blank)), 0) << line;
      lines.append("#").append(line.substr(blank)) += "\n";
    }
    return lines;
  };
  const std::string refused =
      "#  2024-04-03 09:30:00  admin@127.0.0.1  207 membership added  ERROR:RECINSERTfunInsCirMember  "
      "refused: ERROR:RECINSERTfunInsCirMember\n";
  const std::string added =
      "#  2024-04-02 09:00:00  admin@127.0.0.1  207 membership added  OK  membership 佐藤 花子 (sato) in 総務課 "
      "(0002): added\n";
  const std::string renamed =
      "#  2024-04-01 09:00:00  admin@127.0.0.1  202 group saved  OK  group 総務課 (0002): "
      "name 総務部 -> 総務課, path / 総務部 -> / 総務課, department B0002 -> (empty)\n";
  EXPECT_EQ(lines("--limit 1"), refused);
  EXPECT_EQ(lines("--group 0002"), added + renamed);
  EXPECT_EQ(lines("--code 207 --until 2024-04-02"), added);
  EXPECT_EQ(lines("--since 2024-04-04"), "");
  EXPECT_EQ(testing::RunBinary("history --config " + ConfigPath() + " --since 2024-4-3"),
            std::pair(1, std::string("orvane history: since: a date as YYYY-MM-DD\n")));
  auto [status, out] = testing::RunBinary("history --config " + ConfigPath() + " --purge");
  EXPECT_EQ(status, 0);
  EXPECT_TRUE(out.starts_with("orvane history: purged 4 entries older than ")) << out;
  EXPECT_TRUE(out.ends_with(" (90 days kept)\n")) << out;
  EXPECT_EQ(lines(""), "");
}

ORVANE_DB_TEST_SUITE(HistoryApi);

}  // namespace
}  // namespace orvane
