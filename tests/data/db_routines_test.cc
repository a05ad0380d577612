// The Com_fun... routines against a real SQLite and PostgreSQL database.
#include <gtest/gtest.h>

#include <regex>

#include "base/text.h"
#include "data/db.h"
#include "data/db_impl.h"
#include "support/db_fixture.h"
#include "support/status_code.h"

namespace orvane::data {

using orvane::testing::Code;
namespace {

using orvane::testing::Backend;
using orvane::testing::Cells;
using orvane::testing::DbTest;
using Strings = std::vector<std::string>;

// The error shape: "[routine]エラー番号 <native> [<SQLSTATE>] <message>".
void ExpectErrorShape(const std::string& error, const std::string& routine, const std::string& tail) {
  std::regex shape("^\\[" + routine + "\\]エラー番号 -?[0-9]+ \\[[0-9A-Z]{5}\\] .+");
  EXPECT_TRUE(std::regex_search(error, shape)) << error;
  EXPECT_TRUE(error.ends_with(tail)) << error << "\nshould end with " << tail;
}

class DataLayer : public DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_EQ(Code(Com_funDbOpen(Dsn(), "", "", conn_), error_), 0) << error_;
  }
  void TearDown() override {
    conn_ = Connection();
    DbTest::TearDown();
  }
  // Every remaining row, its `names` joined with "|".
  Strings FetchAll(Recordset& rs, const Strings& names) {
    Strings out, values;
    bool eof = false;
    while (Code(Com_funfetchData(rs, names, values, eof), error_) == 0 && !eof) out.push_back(text::Join(values, "|"));
    EXPECT_TRUE(eof) << error_;
    return out;
  }
  Strings Select(const Sql& sql, const Strings& names) {
    Recordset rs;
    EXPECT_EQ(Code(Com_funSelect(conn_, sql, rs), error_), 0) << error_;
    return FetchAll(rs, names);
  }

  Connection conn_;
  std::string error_;
};

TEST_P(DataLayer, OpensByNameFromTheOdbcIniBesideTheConfiguration) {
  EXPECT_TRUE(conn_.IsOpen());
  EXPECT_EQ(conn_.dialect().kind(), backend() == Backend::kSqlite ? Dialect::Kind::kSqlite : Dialect::Kind::kPostgres);
  Connection other;
  EXPECT_EQ(Code(Com_funDbOpen("no_such_source", "", "", other), error_), 1);
  EXPECT_EQ(error_,
            "[Com_funDbOpen]エラー番号 0 [IM002] [unixODBC][Driver Manager]Data source name not found and no "
            "default driver specified<BR><BR>SQL : no_such_source");
  EXPECT_FALSE(other.IsOpen());
  EXPECT_EQ(Code(Com_funDbClose(other), error_), 1);
  EXPECT_EQ(error_, "[Com_funDbClose]エラー番号 0 [08003] Connection not open");
  if (backend() == Backend::kPostgres) {  // only both empty mean the default login (SQLite has no logins)
    EXPECT_EQ(Code(Com_funDbOpen(Dsn(), "", "kop47", other), error_), 1);
    ExpectErrorShape(error_, "Com_funDbOpen", "<BR><BR>SQL : " + Dsn());
    EXPECT_EQ(Code(Com_funDbOpen(Dsn(), "kop47", "kop47", other), error_), 0) << error_;
  }
}

TEST_P(DataLayer, AFailingStatementReportsTheRenderedStatement) {
  Sql bad = Sql() << "select NO_SUCH_COLUMN from " << Table("T_USER") << " where USER_ID = " << Quoted("a'b");
  struct Case {
    const char* routine;
    Sql sql;
    const char* rendered;
  } cases[] = {
      {"Com_funSelect", bad, "select NO_SUCH_COLUMN from T_USER where USER_ID = 'a'b'"},
      {"Com_funSelectP", bad, "select NO_SUCH_COLUMN from T_USER where USER_ID = 'a'b'"},
      {"Com_funExecsql", Sql() << "delete from " << Table("T_USER") << " where NOPE = " << Quoted("1"),
       "delete from T_USER where NOPE = '1'"},
      // A name tacked on without a comma is not repaired: it fails on every backend.
      {"Com_funSelect", Sql() << "SELECT SEC_CD from " << Table("T_SECTION") << " order by JOI_SEC,SEC_SEQ SEC_NM",
       "SELECT SEC_CD from T_SECTION order by JOI_SEC,SEC_SEQ SEC_NM"},
  };
  for (const Case& c : cases) {
    Recordset rs;
    std::string_view routine = c.routine;
    EXPECT_EQ(routine == "Com_funExecsql"  ? Code(Com_funExecsql(conn_, c.sql), error_)
              : routine == "Com_funSelect" ? Code(Com_funSelect(conn_, c.sql, rs), error_)
                                           : Code(Com_funSelectP(conn_, c.sql, rs), error_),
              1);
    ExpectErrorShape(error_, c.routine, std::string("<BR><BR>SQL : ") + c.rendered);
  }
  // Refused before sending: the same shape, nothing reaches the database.
  EXPECT_EQ(Code(Com_funExecsql(conn_, Sql() << "delete from " << Table("sqlite_master")), error_), 1);
  EXPECT_EQ(error_,
            "[Com_funExecsql]エラー番号 0 [42000] Statement refused before sending: unknown table name "
            "\"sqlite_master\"<BR><BR>SQL : delete from sqlite_master");
}

TEST_P(DataLayer, QuotesInjectionAndJapaneseAreStoredAsData) {
  const Strings values = {"o'neil", "'; drop table T_USER; --", "a''b",   "\\'",    "100%_",
                          "ガモウ", "イトウ\u3000タロウ",       "カトウ", "アオキ", "あおき",
                          "ｱｵｷ"};
  for (const std::string& v : values) Insert("T_USER", {{"USER_ID", v}, {"NAME_KN", v}});
  for (const std::string& v : values) {  // fetched by names in any letter case
    EXPECT_EQ(Select(Sql() << "select USER_ID, NAME_KN from " << Table("T_USER") << " where USER_ID = " << Quoted(v),
                     {"user_id", "Name_Kn"}),
              Strings{v + "|" + v});
  }
  // Code-point order, which the kana-row counts rely on: hiragana and
  // half-width kana fall outside the katakana rows.
  EXPECT_EQ(Select(Sql() << "select USER_ID from " << Table("T_USER") << " order by NAME_KN", {"USER_ID"}),
            (Strings{"'; drop table T_USER; --", "100%_", "\\'", "a''b", "o'neil", "あおき", "アオキ",
                     "イトウ\u3000タロウ", "カトウ", "ガモウ", "ｱｵｷ"}));
}

TEST_P(DataLayer, FetchEmptyNullExhaustedAndClosed) {
  Recordset rs;
  Strings values;
  bool eof = false;
  auto fetch = [&] { return Code(Com_funfetchData(rs, {"USER_ID", "MAIL"}, values, eof), error_); };
  // Empty result: the end flag at once; a value array never filled is empty texts.
  ASSERT_EQ(Code(Com_funSelect(conn_, Sql() << "select USER_ID, MAIL from " << Table("T_USER"), rs), error_), 0);
  EXPECT_EQ(fetch(), 0);
  EXPECT_TRUE(eof);
  EXPECT_EQ(values, (Strings{"", ""}));

  Insert("T_USER", {{"USER_ID", "u1"}});  // MAIL stays null
  ASSERT_EQ(Code(Com_funSelect(conn_, Sql() << "select USER_ID, MAIL from " << Table("T_USER"), rs), error_), 0);
  // The row, then the exhausted result: the flag, and the values stay as they were.
  for (bool at_end : {false, true}) {
    EXPECT_EQ(fetch(), 0);
    EXPECT_EQ(eof, at_end);
    EXPECT_EQ(values, (Strings{"u1", ""}));
  }
  EXPECT_EQ(Code(Com_funRecordsetClose(rs), error_), 0);
  EXPECT_EQ(Code(Com_funRecordsetClose(rs), error_), 1);
  EXPECT_EQ(error_, "[Com_funRecordsetClose]エラー番号 0 [HY010] Recordset not open");

  ASSERT_EQ(Code(Com_funSelect(conn_, Sql() << "select USER_ID from " << Table("T_USER"), rs), error_), 0);
  EXPECT_EQ(fetch(), 1);
  EXPECT_EQ(error_, "[Com_funfetchData]エラー番号 0 [42S22] Column not found: MAIL");
  // Closing the connection invalidates its recordsets.
  ASSERT_EQ(Code(Com_funDbClose(conn_), error_), 0);
  EXPECT_EQ(fetch(), 1);
  EXPECT_EQ(error_, "[Com_funfetchData]エラー番号 0 [08003] The recordset's connection is closed");
  EXPECT_EQ(Code(Com_funRecordsetClose(rs), error_), 0);
}

TEST_P(DataLayer, AbsolutePositionsAndTheArrayCopy) {
  for (const char* id : {"u1", "u2", "u3", "u4", "u5"})
    Insert("T_USER", {{"USER_ID", id}, {"MAIL", std::string("m") + id}});
  Sql all = Sql() << "select USER_ID, MAIL from " << Table("T_USER") << " order by USER_ID";
  // One after the other on the same result: each position, then every row from there.
  struct Case {
    short position;
    Strings rows;  // none: out of range
  } cases[] = {{3, {"u3", "u4", "u5"}}, {6, {}}, {1, {"u1", "u2", "u3", "u4", "u5"}}, {0, {}}, {5, {"u5"}}};
  // Static cursors, and the emulation used where a driver has none: a
  // forward-only result that skips rows and runs again to go back.
  for (bool emulated : {false, true}) {
    Recordset rs;
    ASSERT_EQ(Code((emulated ? Com_funSelect : Com_funSelectP)(conn_, all, rs), error_), 0) << error_;
    if (emulated) rs.impl()->positionable = true;
    EXPECT_EQ(rs.impl()->scrollable, !emulated);
    for (const Case& c : cases) {
      EXPECT_EQ(Code(Com_funSetAbsolutePos(rs, c.position), error_), c.rows.empty()) << c.position << " " << emulated;
      if (!c.rows.empty())
        EXPECT_EQ(FetchAll(rs, {"USER_ID"}), c.rows) << c.position << " " << emulated;
      else
        EXPECT_EQ(error_,
                  "[Com_funSetAbsolutePos]エラー番号 0 [HY107] Row value out of range: " + std::to_string(c.position));
    }
    // Back from the end, and back again before reading; the copy is
    // [column][row], and an exhausted result copies as its columns only.
    ASSERT_EQ(Code(Com_funSetAbsolutePos(rs, 4), error_) + Code(Com_funSetAbsolutePos(rs, 2), error_), 0) << error_;
    Array2D array;
    ASSERT_EQ(Code(Com_funRecodsetToArray(rs, array), error_), 0) << error_;
    EXPECT_EQ(array, (Array2D{{"u2", "u3", "u4", "u5"}, {"mu2", "mu3", "mu4", "mu5"}})) << emulated;
    ASSERT_EQ(Code(Com_funRecodsetToArray(rs, array), error_), 0);
    EXPECT_EQ(array, (Array2D{{}, {}}));
  }
  // A plain select cannot be positioned.
  Recordset rs;
  ASSERT_EQ(Code(Com_funSelect(conn_, all, rs), error_), 0);
  EXPECT_EQ(Code(Com_funSetAbsolutePos(rs, 1), error_), 1);
  EXPECT_EQ(error_, "[Com_funSetAbsolutePos]エラー番号 0 [HY106] The recordset was not opened for positioning");
}

TEST_P(DataLayer, RollbackLeavesNoRowAndCommitKeepsAll) {
  auto count = [&] { return Rows(Sql() << "select count(*) from " << Table("T_USER"))[0][0]; };
  auto insert = [&](const char* id) {
    return Code(
        Com_funExecsql(conn_, Sql() << "insert into " << Table("T_USER") << " (USER_ID) values (" << Quoted(id) << ")"),
        error_);
  };
  for (bool commit : {false, true}) {
    ASSERT_EQ(Code(Com_funBeginTrans(conn_), error_), 0) << error_;
    EXPECT_EQ(insert("a") + insert("b"), 0);
    EXPECT_EQ(Code((commit ? Com_funCommitTrans : Com_funRollbackTrans)(conn_), error_), 0) << error_;
    EXPECT_EQ(count(), commit ? "2" : "0");
  }
  // A failed statement rolls the whole unit back: nothing of it can be
  // committed afterwards, on any backend.
  ASSERT_EQ(Code(Com_funBeginTrans(conn_), error_), 0);
  EXPECT_EQ(Code(Com_funBeginTrans(conn_), error_), 1);
  EXPECT_EQ(error_, "[Com_funBeginTrans]エラー番号 0 [25000] A transaction is already open");
  EXPECT_EQ(insert("c"), 0);
  EXPECT_EQ(insert("a"), 1);  // duplicate key
  EXPECT_EQ(insert("d"), 1);
  EXPECT_EQ(error_,
            "[Com_funExecsql]エラー番号 0 [25000] The transaction was rolled back after a failed statement; roll back "
            "first<BR><BR>SQL : insert into T_USER (USER_ID) values ('d')");
  EXPECT_EQ(Code(Com_funCommitTrans(conn_), error_), 1);
  EXPECT_EQ(Code(Com_funRollbackTrans(conn_), error_), 0);
  EXPECT_EQ(count(), "2");
  EXPECT_EQ(insert("e"), 0);  // after the rollback the connection works again
  EXPECT_EQ(count(), "3");

  // A transaction left open is rolled back when the connection goes back to the pool.
  ASSERT_EQ(Code(Com_funBeginTrans(conn_), error_), 0);
  EXPECT_EQ(insert("f"), 0);
  EXPECT_EQ(Code(Com_funDbClose(conn_), error_), 0);
  EXPECT_EQ(count(), "3");
}

ORVANE_DB_TEST_SUITE(DataLayer);

}  // namespace
}  // namespace orvane::data
