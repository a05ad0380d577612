// The pages' JSON endpoints and the optional fields of 202 and 205, over
// real HTTP against a real database: search folds kana, width and case and
// ranks exact before prefix before substring; the field rules come from
// the request table; a save that names a stale update stamp changes
// nothing; BUSHO_Set stores the department code, checked as 201 checks it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <thread>

#include "requests/field_rules_doc.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane {
namespace {

using data::Quoted;
using data::Sql;
using data::Table;
using testing::Cells;
using testing::DbTest;
using testing::LiveServer;

class Api : public DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    InsertDemo();
    server_ = std::make_unique<LiveServer>(ConfigPath());
    auto res = server_->Client().Post("/login", "User_cd=admin&User_PS=admin", "application/x-www-form-urlencoded");
    ASSERT_TRUE(res && res->body == "OK");
    admin_ = res->get_header_value("Set-Cookie").substr(0, 43);
  }
  // "status body" of a GET, or of a POST with `form`.
  std::string Call(const std::string& target, const std::string& form = "", const std::string& cookie = "-") {
    httplib::Headers headers = {{"Cookie", cookie == "-" ? admin_ : cookie}};
    auto client = server_->Client();
    auto res = form.empty() ? client.Get(target, headers)
                            : client.Post(target, headers, form, "application/x-www-form-urlencoded");
    return res ? std::to_string(res->status) + " " + res->body : std::string("(no answer)");
  }
  nlohmann::json Json(const std::string& target) {
    std::string answer = Call(target);
    EXPECT_EQ(answer.substr(0, 4), "200 ") << answer;
    return nlohmann::json::parse(answer.substr(4));
  }
  // The ids (users) and codes (groups) a search finds, in order.
  std::string Found(const std::string& percent_encoded_q) {
    nlohmann::json j = Json("/api/search?q=" + percent_encoded_q);
    std::string out;
    for (const auto& u : j["users"]) out += u["id"].get<std::string>() + " ";
    out += "|";
    for (const auto& g : j["groups"]) out += " " + g["code"].get<std::string>();
    return out;
  }
  std::string GroupStamp(const std::string& code) {
    return Json("/api/stamp?group=" + code)["stamp"].get<std::string>();
  }

  std::unique_ptr<LiveServer> server_;
  std::string admin_;
};

TEST_P(Api, SearchFoldsKanaWidthAndCaseAndRanksExactThenPrefixThenSubstring) {
  Insert("T_USER", {{"USER_ID", "Kato"},
                    {"NAME_KJ", "加藤 ＡＢＣ"},
                    {"NAME_KN", "カトウ エービー"},
                    {"MAIL", "KATO@Example.jp"},
                    {"UPD_KBN", "3"}});
  Insert("T_USER", {{"USER_ID", "gone"}, {"NAME_KJ", "消えた"}, {"NAME_KN", "ヤマダ キエタ"}, {"UPD_KBN", "1"}});
  server_->state().search.Invalidate();  // inserted behind the server's back
  const struct {
    const char* q;  // percent-encoded
    const char* found;
  } kCases[] = {
      {"%E3%82%84%E3%81%BE%E3%81%A0", "yamada |"},           // やまだ: hiragana finds ヤマダ
      {"%EF%BE%94%EF%BE%8F%EF%BE%80%EF%BE%9E", "yamada |"},  // ﾔﾏﾀﾞ: half-width with its voiced mark
      {"abc", "Kato |"},                                     // ＡＢＣ in the name
      {"%EF%BD%8B%EF%BD%81%EF%BD%94%EF%BD%8F", "Kato |"},    // ｋａｔｏ: exact id, full-width
      {"example.JP", "Kato |"},                              // mail, any case
      {"%E5%96%B6%E6%A5%AD", "| 0001 0004 0005"},            // 営業: groups by name
      {"0004", "| 0004"},                                    // by code
      {"sato", "sato |"},
      {"%E3%81%8D%E3%81%88%E3%81%9F", "|"},  // きえた: a row marked deleted
      {"", "|"},
  };
  for (const auto& c : kCases) EXPECT_EQ(Found(c.q), c.found) << c.q;
  // Exact before prefix before substring, by id within each, whichever
  // field matched: "ta" is an id, starts tanaka's id and zz's mail, and is
  // inside aaa's name and watanabe's id.
  Insert("T_USER", {{"USER_ID", "ta"}, {"UPD_KBN", "3"}});
  Insert("T_USER", {{"USER_ID", "zz"}, {"MAIL", "Taro@x"}, {"UPD_KBN", "3"}});
  Insert("T_USER", {{"USER_ID", "aaa"}, {"NAME_KJ", "xTAx"}, {"UPD_KBN", "3"}});
  server_->state().search.Invalidate();
  EXPECT_EQ(Found("ta"), "ta tanaka zz aaa watanabe |");
  // Twenty at most of each.
  for (int i = 0; i < 25; ++i) Insert("T_USER", {{"USER_ID", "many" + std::to_string(100 + i)}, {"UPD_KBN", "3"}});
  server_->state().search.Invalidate();
  EXPECT_EQ(Json("/api/search?q=many")["users"].size(), 20u);
  EXPECT_EQ(Json("/api/search?q=many")["users"][0]["id"], "many100");
  // A change through the server is found once the copy is read again in
  // the background; answers meanwhile come from the old copy.
  ASSERT_EQ(Call("/orvane", "ReqNo=202&Group_cd=0002&Group_nm=%E4%BA%BA%E4%BA%8B%E9%83%A8&Disp_NM=x&M_LIST="),
            "200 OK");
  std::string renamed = Found("%E4%BA%BA%E4%BA%8B");  // 人事
  for (int i = 0; i < 100 && renamed != "| 0002"; ++i) {
    EXPECT_EQ(renamed, "|");
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    renamed = Found("%E4%BA%BA%E4%BA%8B");
  }
  EXPECT_EQ(renamed, "| 0002");
  EXPECT_EQ(Call("/api/search?q=" + std::string(101, 'a')),
            "400 {\"error\":\"ERROR:INVALIDVALUE\",\"message\":\"q: must be valid UTF-8 of at most 100 characters\"}");
}

TEST_P(Api, EveryEndpointIsBehindTheAdministratorCheck) {
  Exec(Sql() << "update " << Table("MENU_USER") << " set MENU50 = " << Quoted("ZZ")
             << " where USER_ID = " << Quoted("admin"));
  for (const char* target : {"/api/search?q=a", "/api/field-rules", "/api/stamp?group=0000"}) {
    EXPECT_EQ(Call(target), "401 {\"error\":\"ERROR:SESSIONCHECK\"}") << target;
    EXPECT_EQ(Call(target, "", ""), "401 {\"error\":\"ERROR:SESSIONCHECK\"}") << target;
  }
}

TEST_P(Api, FieldRulesAreTheRequestTablesAndNotKept) {
  auto res = server_->Client().Get("/api/field-rules", {{"Cookie", admin_}});
  ASSERT_TRUE(res);
  EXPECT_EQ(res->status, 200);
  EXPECT_EQ(res->get_header_value("Cache-Control"), "no-cache");
  EXPECT_EQ(res->get_header_value("Content-Type"), "application/json; charset=utf-8");
  const nlohmann::json rules = nlohmann::json::parse(res->body);
  EXPECT_EQ(rules, FieldRulesDocument());
  // The optional fields of 202 are there, BUSHO_CD checked only with its switch.
  std::string fields;
  for (const auto& r : rules["requests"])
    if (r["code"] == "202")
      for (const auto& f : r["fields"]) fields += f.dump() + "\n";
  EXPECT_EQ(fields,
            "{\"checked\":false,\"field\":\"Group_cd\",\"kind\":\"code\",\"required\":false}\n"
            "{\"checked\":true,\"field\":\"Group_nm\",\"kind\":\"name\",\"required\":false}\n"
            "{\"checked\":true,\"field\":\"Disp_NM\",\"kind\":\"name\",\"required\":false}\n"
            "{\"checked\":true,\"field\":\"M_LIST\",\"kind\":\"code\",\"required\":false}\n"
            "{\"checked\":false,\"field\":\"BUSHO_Set\",\"kind\":\"flag\",\"required\":false}\n"
            "{\"checked\":true,\"field\":\"BUSHO_CD\",\"kind\":\"code\",\"required\":false,\"when\":\"BUSHO_Set\"}\n"
            "{\"checked\":false,\"field\":\"Upd_Stamp\",\"kind\":\"free text\",\"required\":false}\n");
}

TEST_P(Api, AStaleUpdateStampChangesNothingAndNoStampSavesAsBefore) {
  const std::string group = "ReqNo=202&Group_cd=0002&Group_nm=G&Disp_NM=D&M_LIST=";
  const std::string user =
      "ReqNo=205&User_cd=ito&User_KJ=K&User_KN=N&User_PS=ito&Mail_AD=ito&Mail_FL=0&Ext_TEL=1&Post_NM=&Disp_NM=004"
      "&Mail_UFL=0&Mail_NM=&OldMail_UFL=0&OldAlias=&OldAlias_FL=0";
  auto group_row = [&] {
    return Rows(Sql() << "select SEC_NM, DSP_NM, UPD_YMD, UPD_HMS from " << Table("T_SECTION")
                      << " where SEC_CD = '0002'");
  };
  auto user_row = [&] {
    return Rows(Sql() << "select NAME_KJ, UPD_YMD, UPD_HMS from " << Table("T_USER") << " where USER_ID = 'ito'");
  };
  EXPECT_EQ(GroupStamp("0002"), "20240401102030");
  EXPECT_EQ(Json("/api/stamp?user=ito")["stamp"], "20240401102030");
  EXPECT_EQ(Json("/api/stamp?user=nobody")["stamp"], "");
  EXPECT_EQ(Call("/api/stamp?user=ito&group=0002").substr(0, 4), "400 ");

  // Changed since: refused, the rows as they were.
  const Cells group_before = group_row(), user_before = user_row();
  EXPECT_EQ(Call("/orvane", group + "&Upd_Stamp=20240401102029"), "200 ERROR:TIMESTAMP");
  EXPECT_EQ(Call("/orvane", user + "&Upd_Stamp=20240401102029"), "200 ERROR:TIMESTAMP");
  EXPECT_EQ(group_row(), group_before);
  EXPECT_EQ(user_row(), user_before);
  // Unchanged since: saved, with a new stamp that the next save must name.
  EXPECT_EQ(Call("/orvane", group + "&Upd_Stamp=20240401102030"), "200 OK");
  EXPECT_EQ(Call("/orvane", user + "&Upd_Stamp=20240401102030"), "200 OK");
  EXPECT_EQ(group_row()[0][0], "G");
  EXPECT_EQ(user_row()[0][0], "K");
  EXPECT_EQ(Call("/orvane", group + "&Upd_Stamp=20240401102030"), "200 ERROR:TIMESTAMP");
  EXPECT_EQ(Call("/orvane", group + "&Upd_Stamp=" + GroupStamp("0002")), "200 OK");
  // Without the field (or empty) a save wins as it always has.
  EXPECT_EQ(Call("/orvane", group), "200 OK");
  EXPECT_EQ(Call("/orvane", group + "&Upd_Stamp="), "200 OK");
  EXPECT_EQ(Call("/orvane", user), "200 OK");
}

TEST_P(Api, BushoSetStoresTheDepartmentCodeCheckedAs201ChecksIt) {
  auto busho = [&](const char* code) {
    return Rows(Sql() << "select BUSHO_CD from " << Table("T_SECTION") << " where SEC_CD = " << Quoted(code))[0][0];
  };
  const std::string save = "ReqNo=202&Group_cd=0002&Group_nm=G&Disp_NM=D&M_LIST=";
  EXPECT_EQ(Call("/orvane", save + "&BUSHO_Set=1&BUSHO_CD=B00020002"), "200 OK");
  EXPECT_EQ(busho("0002"), "B00020002");
  // Saved unchanged with the switch: kept (its own code is no duplicate).
  EXPECT_EQ(Call("/orvane", save + "&BUSHO_Set=1&BUSHO_CD=B00020002"), "200 OK");
  EXPECT_EQ(busho("0002"), "B00020002");
  // Another group's code, a wrong length, a comma: refused, nothing changed.
  Exec(Sql() << "update " << Table("T_SECTION") << " set BUSHO_CD = " << Quoted("B00010001")
             << " where SEC_CD = " << Quoted("0001"));
  const struct {
    const char* busho;
    const char* answer;
  } kRefused[] = {
      {"B00010001", "200 ERROR:ALREADYBUSHO"},
      {"B0002", "200 ERROR:ALREADYBUSHO"},
      {"B0002%2C002", "200 ERROR:INVALIDVALUE\r\nBUSHO_CD: must not hold a comma"},
  };
  for (const auto& c : kRefused) {
    EXPECT_EQ(Call("/orvane", save + "&Group_nm=X&BUSHO_Set=1&BUSHO_CD=" + c.busho), c.answer) << c.busho;
    EXPECT_EQ(busho("0002"), "B00020002");
  }
  // Without the switch 202 stores it empty whatever is sent, a comma too.
  EXPECT_EQ(Call("/orvane", save + "&BUSHO_CD=B0002%2C002"), "200 OK");
  EXPECT_EQ(busho("0002"), "");
  EXPECT_EQ(Call("/orvane", save + "&BUSHO_Set=0&BUSHO_CD=B00020002"), "200 OK");
  EXPECT_EQ(busho("0002"), "");
}

ORVANE_DB_TEST_SUITE(Api);

}  // namespace
}  // namespace orvane
