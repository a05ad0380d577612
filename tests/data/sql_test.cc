#include "data/sql.h"

#include <gtest/gtest.h>

#include "data/dialect.h"

namespace orvane::data {
namespace {

TEST(Sql, RendersTheSystemsTextAndSendsValuesApartPerDriver) {
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
    const char* dbms_name;  // SQL_DBMS_NAME, which chooses the dialect
    const char* statement;
    std::vector<std::string> params;
  } cases[] = {
      {"SQLite",
       "select USER_ID ,'/'||MENU01||'/'||MENU02||'/' as MENU from MENU_USER_WORK where USER_ID = ?"
       " and (M.ST_YMD <= 20240401) order by length(SEC_TREE),USER_SEQ",
       {"o'neil"}},
      {"PostgreSQL",
       "select USER_ID ,'/'||MENU01||'/'||MENU02||'/' as MENU from MENU_USER_WORK where USER_ID = ?"
       " and (M.ST_YMD <= ?) order by length(SEC_TREE),USER_SEQ",
       {"o'neil", "20240401"}},
      {"Microsoft SQL Server",
       "select USER_ID ,'/'+MENU01+'/'+MENU02+'/' as MENU from MENU_USER_WORK where USER_ID = ?"
       " and (M.ST_YMD <= 20240401) order by len(SEC_TREE),USER_SEQ",
       {"o'neil"}},
  };
  for (const Case& c : cases) {
    const Dialect& dialect = Dialect::ForDbmsName(c.dbms_name);
    EXPECT_EQ(sql.Statement(dialect), c.statement) << c.dbms_name;
    EXPECT_EQ(sql.Parameters(dialect), c.params) << c.dbms_name;
  }
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

}  // namespace
}  // namespace orvane::data
