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
using testing::LiveServer;

class Api : public testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    InsertDemo();
    server_ = std::make_unique<LiveServer>(ConfigPath());
    admin_ = server_->LogIn("admin", "admin");
  }
  // "status body" of the administrator's GET, or POST of `form`.
  std::string Call(const std::string& target, const std::optional<std::string>& form = std::nullopt) {
    return server_->Call(target, admin_, form);
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
    for (const auto& u : j["users"]) out.append(u["id"].get<std::string>()).append(" ");
    out += "|";
    for (const auto& g : j["groups"]) out.append(" ").append(g["code"].get<std::string>());
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
    EXPECT_EQ(server_->Call(target), "401 {\"error\":\"ERROR:SESSIONCHECK\"}") << target;
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
  std::string codes;
  for (const auto& r : rules["requests"]) codes += r["code"].get<std::string>() + " ";
  EXPECT_EQ(codes, "201 202 203 204 205 206 207 208 209 210 211 212 213 ");
  // A field checked only with its switch, or with its own answer, says so.
  EXPECT_EQ(rules["requests"][1]["fields"][5].dump(),
            R"({"checked":true,"field":"BUSHO_CD","kind":"code","required":false,"when":"BUSHO_Set"})");
  EXPECT_EQ(rules["requests"][7]["fields"][5].dump(),
            R"({"checked":true,"field":"ED_Ymd","kind":"end date","own_answer":"ERROR:RECUPDATE","required":false})");
  EXPECT_EQ(rules["kinds"]["name"], "no comma, no control character, valid UTF-8, at most 100 characters");
}

TEST_P(Api, AStaleUpdateStampChangesNothingAndNoStampSavesAsBefore) {
  const std::string group = "ReqNo=202&Group_cd=0002&Group_nm=G&Disp_NM=D&M_LIST=";
  const std::string user =
      "ReqNo=205&User_cd=ito&User_KJ=K&User_KN=N&User_PS=ito&Mail_AD=ito&Mail_FL=0&Ext_TEL=1&Post_NM=&Disp_NM=004"
      "&Mail_UFL=0&Mail_NM=&OldMail_UFL=0&OldAlias=&OldAlias_FL=0";
  auto rows = [&] {
    return Rows(Sql() << "select S.SEC_NM, S.DSP_NM, S.UPD_YMD, S.UPD_HMS, U.NAME_KJ, U.UPD_YMD, U.UPD_HMS from "
                      << Table("T_SECTION") << " S, " << Table("T_USER") << " U"
                      << " where S.SEC_CD = '0002' and U.USER_ID = 'ito'");
  };
  EXPECT_EQ(GroupStamp("0002"), "20240401102030");
  EXPECT_EQ(Json("/api/stamp?user=ito")["stamp"], "20240401102030");
  EXPECT_EQ(Json("/api/stamp?user=nobody")["stamp"], "");
  EXPECT_EQ(Call("/api/stamp?user=ito&group=0002").substr(0, 4), "400 ");

  // Changed since: refused, the rows as they were.
  const Cells before = rows();
  for (const std::string& save : {group, user})
    EXPECT_EQ(Call("/orvane", save + "&Upd_Stamp=20240401102029"), "200 ERROR:TIMESTAMP");
  EXPECT_EQ(rows(), before);
  // Unchanged since: saved, with a new stamp that the next save must name.
  for (const std::string& save : {group, user})
    EXPECT_EQ(Call("/orvane", save + "&Upd_Stamp=20240401102030"), "200 OK");
  EXPECT_EQ(rows()[0][0] + rows()[0][4], "GK");
  EXPECT_EQ(Call("/orvane", group + "&Upd_Stamp=20240401102030"), "200 ERROR:TIMESTAMP");
  EXPECT_EQ(Call("/orvane", group + "&Upd_Stamp=" + GroupStamp("0002")), "200 OK");
  // Without the field (or empty) a save wins as it always has.
  EXPECT_EQ(Call("/orvane", group), "200 OK");
  EXPECT_EQ(Call("/orvane", group + "&Upd_Stamp="), "200 OK");
  EXPECT_EQ(Call("/orvane", user), "200 OK");
}

TEST_P(Api, BushoSetStoresTheDepartmentCodeCheckedAs201ChecksIt) {
  Exec(Sql() << "update " << Table("T_SECTION") << " set BUSHO_CD = " << Quoted("B00010001")
             << " where SEC_CD = " << Quoted("0001"));
  struct Step {
    const char* fields;  // after 202's own
    std::string answer;
    const char* stored;
  } steps[] = {
      {"&BUSHO_Set=1&BUSHO_CD=B00020002", "200 OK", "B00020002"},
      {"&BUSHO_Set=1&BUSHO_CD=B00020002", "200 OK", "B00020002"},  // kept: its own code is no duplicate
      // Another group's code, a wrong length, a comma: refused, nothing changed.
      {"&Group_nm=X&BUSHO_Set=1&BUSHO_CD=B00010001", "200 ERROR:ALREADYBUSHO", "B00020002"},
      {"&Group_nm=X&BUSHO_Set=1&BUSHO_CD=B0002", "200 ERROR:ALREADYBUSHO", "B00020002"},
      {"&Group_nm=X&BUSHO_Set=1&BUSHO_CD=B0002%2C002", "200 ERROR:INVALIDVALUE\r\nBUSHO_CD: must not hold a comma",
       "B00020002"},
      // Without the switch 202 stores it empty whatever is sent, a comma too.
      {"&BUSHO_CD=B0002%2C002", "200 OK", ""},
      {"&BUSHO_Set=0&BUSHO_CD=B00020002", "200 OK", ""},
  };
  for (const Step& s : steps) {
    EXPECT_EQ(Call("/orvane", std::string("ReqNo=202&Group_cd=0002&Group_nm=G&Disp_NM=D&M_LIST=") + s.fields), s.answer)
        << s.fields;
    EXPECT_EQ(Rows(Sql() << "select BUSHO_CD from " << Table("T_SECTION") << " where SEC_CD = '0002'"),
              (Cells{{s.stored}}))
        << s.fields;
  }
}

ORVANE_DB_TEST_SUITE(Api);

}  // namespace
}  // namespace orvane
