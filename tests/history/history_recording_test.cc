// Every changing request keeps its history entry in its own transaction,
// on a real SQLite and PostgreSQL database: the entry and the rows it
// touched when the change commits, neither when a failure after the
// change's last statement rolls it back (a refusal is kept instead).
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "base/text.h"
#include "data/history_schema.h"
#include "data/schema.h"
#include "support/db_fixture.h"
#include "support/failure_seam.h"

namespace orvane {
namespace {

using data::Table;
using orvane::testing::Cells;
using orvane::testing::Point;
using orvane::testing::ScopedFailure;

class HistoryRecording : public orvane::testing::DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    WriteConfig("ML_MODE=0\n");  // the user changes without the mail server
    InsertDemo();
    session().Set("PUB_USR_ID", "admin");
  }
  // "CODE|USER_ID|ADDRESS|ENTRY_TIME|ANSWER" of every entry, oldest first.
  std::vector<std::string> Entries() {
    std::vector<std::string> out;
    for (const auto& row : Rows(data::Sql() << "select CODE, USER_ID, ADDRESS, ENTRY_TIME, ANSWER from "
                                            << Table("ORVANE_HISTORY") << " order by ID"))
      out.push_back(text::Join(row, "|"));
    return out;
  }
  // "TABLE action KEY" of every row image, in the order written.
  std::string Changes() {
    std::string out;
    for (const auto& row : Rows(data::Sql() << "select ROW_TABLE, ROW_ACTION, ROW_KEY from "
                                            << Table("ORVANE_HISTORY_ROW") << " order by ID"))
      out += text::Join(row, " ") + "\n";
    return out;
  }
  // Everything the requests change, to compare before and after.
  std::string Organisation() { return AllRows({"T_SECTION", "T_USER", "T_SECMEMBER", "MENU_USER", "T_PASSGEN"}); }
};

struct Change {
  const char* query;
  const char* rows;  // the row images it keeps
};

const Change kChanges[] = {
    {"ReqNo=201&Group_cd=0000&Group_nm=企画部&Disp_NM=&M_LIST=", "T_SECTION insert 0006\n"},
    {"ReqNo=202&Group_cd=0002&Group_nm=総務課&Disp_NM=総務&M_LIST=", "T_SECTION update 0002\n"},
    {"ReqNo=203&Group_cd=0005", "T_SECTION delete 0005\nT_SECMEMBER delete 0005/ito\n"},
    {"ReqNo=204&User_cd=kimura&User_KJ=木村&User_KN=キムラ&User_PS=pw-kimura&Mail_UFL=1",
     "T_USER insert kimura\nT_PASSGEN insert kimura\nMENU_USER insert kimura\n"},
    {"ReqNo=205&User_cd=ito&User_KJ=伊藤 健二&User_KN=イトウ&User_PS=&Mail_UFL=1&OldMail_UFL=1", "T_USER update ito\n"},
    {"ReqNo=206&User_cd=tanaka&Mail_UFL=1",
     "T_USER delete tanaka\nMENU_USER delete tanaka\nT_SECMEMBER delete 0004/tanaka\n"},
    {"ReqNo=207&Group_cd=0002&User_cd=sato", "T_SECMEMBER insert 0002/sato\n"},
    {"ReqNo=208&Group_cd=0004&User_cd=sato&Primary=1&Post_cd=02&ST_Ymd=20240401&ED_Ymd=99999999",
     "T_SECMEMBER update 0004/sato\n"},
    {"ReqNo=209&Group_cd=0002&User_cd=yamada", "T_SECMEMBER delete 0002/yamada\n"},
    {"ReqNo=210&Group_cd1=0002&Group_cd2=0003&Group_cd3=0000", "T_SECTION update 0003\nT_SECTION update 0002\n"},
    {"ReqNo=211&Group_cd=0004&User_cd=yamada&User_cd2=sato",
     "T_SECMEMBER update 0004/yamada\nT_SECMEMBER update 0004/sato\n"},
    {"ReqNo=212&Group_cd1=0004&Group_cd2=0002", "T_SECTION update 0004\n"},
    {"ReqNo=213&User_cd=yamada&User_Menu=%2F01%2F", "MENU_USER update yamada\n"},
    // 0004 is under 0002 now: its rewritten path is derived and keeps no image.
    {"ReqNo=202&Group_cd=0002&Group_nm=総務&Disp_NM=&M_LIST=", "T_SECTION update 0002\n"},
};

// Each change twice: a failed commit first, which leaves neither the change
// nor its rows but the refusal's entry, then the change and its rows.
TEST_P(HistoryRecording, EachChangeKeepsItsEntryAndRowsInItsTransaction) {
  auto clear = [&] {
    Exec(data::Sql() << "delete from " << Table("ORVANE_HISTORY_ROW"));
    Exec(data::Sql() << "delete from " << Table("ORVANE_HISTORY"));
  };
  for (const Change& c : kChanges) {
    SCOPED_TRACE(c.query);
    const std::string code = std::string(c.query).substr(6, 3), before = Organisation();
    std::string answer;
    {
      ScopedFailure f(Point::kCommit, 1, "40001", "could not serialize access");
      answer = Request(c.query);
    }
    EXPECT_TRUE(answer.starts_with("ERROR:DBCOMMIT")) << answer;
    EXPECT_EQ(Organisation(), before);
    EXPECT_EQ(Entries(), std::vector<std::string>{code + "|admin|local|2024-04-01 10:20:30|" + answer});
    EXPECT_EQ(Changes(), "");
    clear();
    ASSERT_EQ(Request(c.query), "OK");
    EXPECT_EQ(Entries(), std::vector<std::string>{code + "|admin|local|2024-04-01 10:20:30|OK"});
    EXPECT_EQ(Changes(), c.rows);
    clear();
  }
}

TEST_P(HistoryRecording, ARefusedRequestIsKeptAsRefusedWithoutRows) {
  ASSERT_EQ(Request("ReqNo=207&Group_cd=0009&User_cd=sato"), "ERROR:RECINSERTfunInsCirMember\r\nno such section: 0009");
  EXPECT_EQ(Entries(), std::vector<std::string>{"207|admin|local|2024-04-01 10:20:30|"
                                                "ERROR:RECINSERTfunInsCirMember\r\nno such section: 0009"});
  EXPECT_EQ(Changes(), "");
  // Refused before the database is asked: no entry.
  session().Set("PUB_USR_ID", "");
  EXPECT_EQ(Request("ReqNo=209&Group_cd=0002&User_cd=yamada"), "ERROR:SESSIONCHECK");
  EXPECT_EQ(Entries().size(), 1u);
}

TEST_P(HistoryRecording, PasswordsAreMaskedInFieldsAndNeverKeptInImages) {
  ASSERT_EQ(Request("ReqNo=204&User_cd=kimura&User_KJ=木村&User_KN=キムラ&User_PS=pw-kimura&Mail_UFL=1"), "OK");
  ASSERT_EQ(Request("ReqNo=205&User_cd=kimura&User_KJ=木村&User_KN=キムラ&User_PS=pw-new&Mail_UFL=1&OldMail_UFL=1"),
            "OK");
  Cells fields = Rows(data::Sql() << "select FIELDS from " << Table("ORVANE_HISTORY") << " order by ID");
  ASSERT_EQ(fields.size(), 2u);
  EXPECT_NE(fields[0][0].find("\"User_PS\":\"***\""), std::string::npos) << fields[0][0];
  std::string images;
  int masked = 0;
  for (const auto& row :
       Rows(data::Sql() << "select ROW_TABLE, BEFORE_IMAGE, AFTER_IMAGE from " << Table("ORVANE_HISTORY_ROW"))) {
    images += row[1] + row[2] + "\n";
    for (const std::string& image : {row[1], row[2]}) {
      nlohmann::json j = nlohmann::json::parse(image.empty() ? "{}" : image);
      for (const char* column : {"PASSWORD", "GEN01_PASS"})
        if (j.contains(column)) masked += j[column] == "********" ? 1 : 100;
    }
  }
  // The insert's password, the generation kept with it, the update's before and after.
  EXPECT_EQ(masked, 4) << images;
  std::string stored = Rows(data::Sql() << "select PASSWORD from " << Table("T_USER")
                                        << " where USER_ID = " << data::Quoted("kimura"))[0][0];
  for (const std::string& secret : {std::string("pw-kimura"), std::string("pw-new"), stored}) {
    EXPECT_EQ(images.find(secret), std::string::npos) << secret << " in " << images;
    EXPECT_EQ(fields[1][0].find(secret), std::string::npos);
  }
}

TEST_P(HistoryRecording, InitDbAddsTheHistoryToADatabaseMadeBeforeIt) {
  data::Connection conn;
  ASSERT_TRUE(data::Com_funDbOpen(Dsn(), "", "", conn).ok());
  ASSERT_TRUE(data::DropHistoryTriggers(conn).ok());
  ASSERT_TRUE(data::Com_funDbClose(conn).ok());
  Exec(data::Sql() << "drop table " << Table("ORVANE_HISTORY_ROW"));
  Exec(data::Sql() << "drop table " << Table("ORVANE_HISTORY"));
  // Not upgraded: changes are refused, nothing half-kept.
  EXPECT_TRUE(Request("ReqNo=209&Group_cd=0002&User_cd=yamada").starts_with("ERROR:BEGINTRANSACTION"));
  ASSERT_TRUE(data::Com_funDbOpen(Dsn(), "", "", conn).ok());
  ASSERT_TRUE(data::CreateSchema(conn).ok());
  ASSERT_TRUE(data::Com_funDbClose(conn).ok());
  ASSERT_EQ(Request("ReqNo=209&Group_cd=0002&User_cd=yamada"), "OK");
  EXPECT_EQ(Entries(), std::vector<std::string>{"209|admin|local|2024-04-01 10:20:30|OK"});
  EXPECT_EQ(Changes(), "T_SECMEMBER delete 0002/yamada\n");
}

ORVANE_DB_TEST_SUITE(HistoryRecording);

}  // namespace
}  // namespace orvane
