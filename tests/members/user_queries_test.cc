// User count, user list paging, user properties and the post list (002,
// 102, 106, 109) on a real SQLite and PostgreSQL database.
#include "members/user_queries.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "base/text.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"

namespace orvane::members {
namespace {

using orvane::testing::DbTest;

class UserQueries : public DbTest {
 protected:
  // Names start with ア (row 0), カ (1), サ (2, deleted), ワ and ン (9),
  // and small ァ or a Latin letter (no row).
  void AddUsers() {
    InsertRows("T_USER", {"USER_ID", "NAME_KJ", "NAME_KN", "POST_NM", "DSP_NM", "MAIL", "UPD_KBN", "PASSWORD"},
               {{"u01", "相沢", "アイザワ", "課長", "3", "c@x", "3", "pw-u01"},
                {"u02", "井上", "ァイ", "部長", "1", "e@x", "3", "pw-u02"},
                {"u03", "渡辺", "ワタナベ", "主任", "5", "a@x", "2", "pw-u03"},
                {"u04", "遠藤", "ンドウ", "", "2", "d@x", "3", "pw-u04"},
                {"u05", "Smith", "Smith", "係長", "4", "b@x", "3", "pw-u05"},
                {"u06", "加藤", "カトウ", "顧問", "6", "f@x", "3", "pw-u06"},
                {"u07", "佐藤", "サトウ", "相談役", "7", "g@x", "1", "pw-u07"}});
  }
  // The user ids of a 102 answer (every sixth field from the second), or
  // the answer itself when it is an error.
  static std::string Ids(const std::string& answer) {
    if (answer.starts_with("ERROR:")) return answer;
    std::vector<std::string> fields = text::Split(answer, ","), ids;
    for (size_t i = 1; i < fields.size(); i += 6) ids.push_back(fields[i]);
    return text::Join(ids, " ");
  }
};

TEST_P(UserQueries, CountsByKanaRow) {
  AddUsers();
  ExpectAnswers("ReqNo=002&", {{"S_Kbn=u&S_OPT=0", "1"},
                               {"S_Kbn=U&S_OPT=2", "1"},  // the deleted row counts
                               {"S_Kbn=U&S_OPT=9", "2"},
                               {"S_Kbn=U&S_OPT=10", "7"},
                               {"S_Kbn=U&S_OPT=A", "7"},
                               {"S_Kbn=U", "7"},
                               {"S_Kbn=U&S_OPT=5", "0"},
                               {"S_Kbn=G", "ERROR:DBSELECT"},
                               {"S_Kbn=", "ERROR:DBSELECT"}});
}

TEST_P(UserQueries, ListSortsAndPages) {
  AddUsers();
  EXPECT_EQ(Request("ReqNo=102&S_Col=id&S_OPT=9&S_pos=1&B_pos=10"), "渡辺,u03,主任,5,a@x,2,遠藤,u04,,2,d@x,3");
  struct Case {
    const char* query;
    const char* ids;  // or the whole answer when it is an error
  } cases[] = {
      {"S_Col=id&S_Type=0&S_pos=1&B_pos=20", "u01 u02 u03 u04 u05 u06 u07"},
      {"S_Col=ID&S_Type=1&S_pos=1&B_pos=20", "u07 u06 u05 u04 u03 u02 u01"},
      {"S_Col=name&S_pos=1&B_pos=20", "u05 u02 u07 u06 u03 u01 u04"},
      {"S_Col=name&S_Type=1&S_pos=1&B_pos=20", "u04 u01 u03 u06 u07 u02 u05"},
      {"S_Col=post&S_OPT=&S_pos=1&B_pos=20", "u04 u03 u05 u07 u01 u02 u06"},
      {"S_Col=mail&S_pos=1&B_pos=20", "u02 u04 u01 u05 u03 u06 u07"},  // "mail" orders by DSP_NM
      {"S_Col=mail&S_Type=1&S_pos=1&B_pos=20", "u07 u06 u03 u05 u01 u04 u02"},
      {"S_Col=term&S_pos=1&B_pos=20", "u03 u05 u01 u04 u02 u06 u07"},  // "term" orders by MAIL
      {"S_Col=term&S_Type=1&S_pos=1&B_pos=20", "u07 u06 u02 u04 u01 u05 u03"},
      {"S_Col=id&S_pos=1&B_pos=3", "u01 u02 u03"},
      {"S_Col=id&S_pos=4&B_pos=2", "u04 u05"},
      {"S_Col=id&S_pos=6&B_pos=5", "u06 u07"},
      {"S_Col=id&S_pos=7&B_pos=1", "u07"},
      {"S_Col=id&S_pos=3&B_pos=0", "u03"},  // at least one row
      {"S_Col=id&S_pos=3&B_pos=-4", "u03"},
      {"S_Col=id&S_pos=8&B_pos=5", "ERROR:ABSOLUTEPOS"},
      {"S_Col=id&S_pos=0&B_pos=5", "ERROR:ABSOLUTEPOS"},
      {"S_Col=id&S_OPT=5&S_pos=1&B_pos=5", "ERROR:ABSOLUTEPOS"},  // empty result
  };
  for (const Case& c : cases) EXPECT_EQ(Ids(Request(std::string("ReqNo=102&") + c.query)), c.ids) << c.query;
}

// Pages by key (the skip through an index alone, then the rows by key)
// give today's pages: the statement as the system writes it, read through a
// positioned static cursor, at the first, a middle and the last page, one past and
// before the first, a last page cut short, with sizes below one (one row), for every sort
// key both ways, all users and kana rows.
TEST_P(UserQueries, PagesByKeyEqualTodaysPages) {
  auto pad = [](int n) { return text::Right("0" + std::to_string(n), 2); };
  const char* kana[] = {"ア", "カ", "サ", "タ", "ナ", "ハ", "マ", "ヤ", "ラ", "ワ", "ン", "ァ", "A"};
  orvane::testing::Cells users;
  for (int i = 0; i < 60; ++i)
    users.push_back({"g" + pad(i), "名" + pad(i * 37 % 60), kana[i % 13] + pad(i), "役" + pad(i * 7 % 60),
                     pad(i * 11 % 60), "m" + pad(i * 13 % 60) + "@x"});
  InsertRows("T_USER", {"USER_ID", "NAME_KJ", "NAME_KN", "POST_NM", "DSP_NM", "MAIL"}, users);
  for (const char* column : {"name", "id", "post", "mail", "term"}) {
    for (const char* type : {"0", "1"}) {
      for (const char* row : {"", "0", "9"}) {
        data::Recordset rs;
        Array2D all;
        ASSERT_TRUE(data::Com_funSelectP(Db(), AllUserListSql(Context(), column, type, row), rs).ok());
        ASSERT_TRUE(data::Com_funRecodsetToArray(rs, all).ok());
        const int count = static_cast<int>(all[0].size());
        ASSERT_GT(count, 4);
        for (auto [position, size] :
             {std::pair{1, 4}, {count / 2, 4}, {count - 2, 4}, {count + 1, 4}, {0, 4}, {2, 0}, {3, -1}}) {
          std::string today;
          for (int r = position - 1; position > 0 && r < std::min(count, position - 1 + std::max(size, 1)); ++r)
            for (size_t c = 0; c < 6; ++c) today += (today.empty() ? "" : ",") + all[c][r];  // the answer's columns
          if (today.empty()) today = "ERROR:ABSOLUTEPOS";
          std::string query = std::string("ReqNo=102&S_Col=") + column + "&S_Type=" + type + "&S_OPT=" + row +
                              "&S_pos=" + std::to_string(position) + "&B_pos=" + std::to_string(size);
          EXPECT_EQ(Request(query), today) << query;
        }
      }
    }
  }
}

TEST_P(UserQueries, UserPropertiesAndPosts) {
  AddUsers();
  // Every column filled, in the answer's order.
  const char* columns[] = {"USER_ID", "NAME_KJ", "NAME_KN", "PASSWORD",     "MAIL",    "IMAIL_FLG",
                           "EXT_TEL", "POST_NM", "DSP_NM",  "MAIL_USE_FLG", "UPD_KBN", "MAIL_NM"};
  const std::string u08 = "u08,小林,コバヤシ,secret,kobayashi,1,1234,部長,10,1,2,Kobayashi";
  orvane::testing::Row row;
  for (const std::string& value : text::Split(u08, ",")) row.emplace_back(columns[row.size()], value);
  Insert("T_USER", row);
  EXPECT_EQ(Request("ReqNo=106&User_cd=u08"), u08);
  EXPECT_EQ(Request("ReqNo=106&User_cd=nobody"), ",,,,,,,,,,,");
  EXPECT_EQ(Request("ReqNo=106&User_cd=u08&DBFlg=1"), ",,,,,,,,,,,");  // not in the work table

  EXPECT_EQ(Request("ReqNo=109"), "");
  Insert("T_POST_MST", {{"POST_CD", "02"}, {"POST_NAME", "課長"}, {"CLASS_CD", "2"}});
  Insert("T_POST_MST", {{"POST_CD", "01"}, {"POST_NAME", "部長,代理"}, {"CLASS_CD", "2"}});
  Insert("T_POST_MST", {{"POST_CD", "09"}, {"POST_NAME", "社長"}, {"CLASS_CD", "1"}});
  EXPECT_EQ(Request("ReqNo=109&DBFlg=1"), "09,社長,01,部長,代理,02,課長");  // no work copy
}

TEST_P(UserQueries, OverHttpThePasswordStaysOutOfTheLog) {
  AddUsers();
  orvane::testing::LiveServer server(ConfigPath(), orvane::testing::OpenReads());
  auto res = server.Client().Get("/orvane?ReqNo=106&User_cd=u01");
  ASSERT_TRUE(res);
  EXPECT_EQ(res->body, "u01,相沢,アイザワ,pw-u01,c@x,,,課長,3,,3,");
  EXPECT_EQ(server.Log().find("pw-u01"), std::string::npos) << server.Log();
}

ORVANE_DB_TEST_SUITE(UserQueries);

}  // namespace
}  // namespace orvane::members
