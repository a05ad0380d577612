#include "data/sql.h"

#include <gtest/gtest.h>

#include "data/dialect.h"

namespace orvane::data {
namespace {

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
  // SQL Server runs the statement as written (SQLite and PostgreSQL run
  // their translations in the database tests); the value is bound.
  const Dialect& sql_server = Dialect::ForDbmsName("Microsoft SQL Server");
  EXPECT_EQ(sql.Statement(sql_server),
            "select USER_ID ,'/'+MENU01+'/'+MENU02+'/' as MENU from MENU_USER_WORK where USER_ID = ?"
            " and (M.ST_YMD <= 20240401) order by len(SEC_TREE),USER_SEQ");
  EXPECT_EQ(sql.Parameters(sql_server), std::vector<std::string>{"o'neil"});
}

TEST(Sql, RefusesPiecesThatCouldChangeTheStatement) {
  struct Case {
    Sql sql;
    const char* problem;
  } cases[] = {
      {Sql() << "select * from " << Table("T_USER; drop table T_USER"),
       "unknown table name \"T_USER; drop table T_USER\""},
      {Sql() << "select " << Identifier("MENU01 --"), "not a column name: \"MENU01 --\""},
      {Sql() << "select " << Len("a)"), "not a column name: \"a)\""},
      {Sql() << "select " << Concat({"'/'", "'x' || (select 1)"}),
       "not a column or plain literal: \"'x' || (select 1)\""},
      {Sql() << "select " << Concat({"'a'b'"}), "not a column or plain literal: \"'a'b'\""},
      {Sql() << "where X = " << Number("1 or 1=1"), "not a number: \"1 or 1=1\""},
      {Sql() << "where X = " << Number(""), "not a number: \"\""},
      // Text columns end a value at a NUL byte: stored, it would be cut short.
      {Sql() << "where X = " << Quoted(std::string("a\0b", 3)), "a value holds a NUL byte"},
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
