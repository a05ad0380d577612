#include "data/sql.h"

#include <gtest/gtest.h>

#include "data/dialect.h"

namespace orvane::data {
namespace {

const Dialect& kSqlite = Dialect::Of(Dialect::Kind::kSqlite);
const Dialect& kPostgres = Dialect::Of(Dialect::Kind::kPostgres);
const Dialect& kSqlServer = Dialect::Of(Dialect::Kind::kSqlServer);

TEST(Sql, RendersTheSystemsTextAndSendsValuesApart) {
  Sql sql;
  sql << "select USER_ID"
      << " ," << Concat({"'/'", "MENU01", "'/'", "MENU02", "'/'"}) << " as MENU"
      << " from " << Table("MENU_USER_WORK") << " where USER_ID = " << Quoted("o'neil")
      << " and (M.ST_YMD <= " << Number("20240401") << ") order by " << Len("SEC_TREE") << ",USER_SEQ";
  EXPECT_TRUE(sql.Valid());
  EXPECT_EQ(sql.Render(),
            "select USER_ID ,'/'+MENU01+'/'+MENU02+'/' as MENU from MENU_USER_WORK where USER_ID = 'o'neil'"
            " and (M.ST_YMD <= 20240401) order by len(SEC_TREE),USER_SEQ");
  struct Case {
    const Dialect& dialect;
    const char* statement;
    std::vector<std::string> params;
  } cases[] = {
      {kSqlite,
       "select USER_ID ,'/'||MENU01||'/'||MENU02||'/' as MENU from MENU_USER_WORK where USER_ID = ?"
       " and (M.ST_YMD <= 20240401) order by length(SEC_TREE),USER_SEQ",
       {"o'neil"}},
      {kPostgres,
       "select USER_ID ,'/'||MENU01||'/'||MENU02||'/' as MENU from MENU_USER_WORK where USER_ID = ?"
       " and (M.ST_YMD <= ?) order by length(SEC_TREE),USER_SEQ",
       {"o'neil", "20240401"}},
      {kSqlServer,
       "select USER_ID ,'/'+MENU01+'/'+MENU02+'/' as MENU from MENU_USER_WORK where USER_ID = ?"
       " and (M.ST_YMD <= 20240401) order by len(SEC_TREE),USER_SEQ",
       {"o'neil"}},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(sql.Statement(c.dialect), c.statement) << c.dialect.Name();
    EXPECT_EQ(sql.Parameters(c.dialect), c.params) << c.dialect.Name();
  }
}

TEST(Sql, BareNumbersAreSentAsTheTextADatabaseStores) {
  Sql sql;
  sql << "update " << Table("T_SECMEMBER") << " set USER_SEQ = " << Number("007") << ", X = " << Number("-0")
      << ", Y = " << Number("-012");
  EXPECT_EQ(sql.Render(), "update T_SECMEMBER set USER_SEQ = 007, X = -0, Y = -012");
  EXPECT_EQ(sql.Parameters(kPostgres), (std::vector<std::string>{"7", "0", "-12"}));
}

TEST(Sql, RefusesPiecesThatCouldChangeTheStatement) {
  struct Case {
    Sql sql;
    const char* problem;
  } cases[] = {
      {Sql() << "select * from " << Table("T_USER; drop table T_USER"),
       "unknown table name \"T_USER; drop table T_USER\""},
      {Sql() << "select * from " << Table("pg_user"), "unknown table name \"pg_user\""},
      {Sql() << "select " << Identifier("MENU01 --"), "not a column name: \"MENU01 --\""},
      {Sql() << "select " << Len("a)"), "not a column name: \"a)\""},
      {Sql() << "select " << Concat({"'/'", "'x' || (select 1)"}),
       "not a column or plain literal: \"'x' || (select 1)\""},
      {Sql() << "select " << Concat({"'a'b'"}), "not a column or plain literal: \"'a'b'\""},
      {Sql() << "where X = " << Number("1 or 1=1"), "not a number: \"1 or 1=1\""},
      {Sql() << "where X = " << Number(""), "not a number: \"\""},
  };
  for (const Case& c : cases) {
    EXPECT_FALSE(c.sql.Valid()) << c.sql.Render();
    EXPECT_EQ(c.sql.Problem(), c.problem);
  }
  // The system's own names are known in any letter case.
  EXPECT_TRUE((Sql() << "delete from " << Table("t_schopen") << " where KEY_CD = " << Quoted("x")).Valid());
  EXPECT_TRUE((Sql() << "delete from " << Table("WF_SYUKKINBO_RIREKI")).Valid());
}

TEST(Dialect, ChosenFromTheDriversDbmsName) {
  EXPECT_EQ(Dialect::ForDbmsName("SQLite").kind(), Dialect::Kind::kSqlite);
  EXPECT_EQ(Dialect::ForDbmsName("PostgreSQL").kind(), Dialect::Kind::kPostgres);
  EXPECT_EQ(Dialect::ForDbmsName("Microsoft SQL Server").kind(), Dialect::Kind::kSqlServer);
}

}  // namespace
}  // namespace orvane::data
