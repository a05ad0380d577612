// The indexes init-db creates are the ones the read statements use: each
// statement's plan, asked of the database itself (EXPLAIN QUERY PLAN on
// SQLite, EXPLAIN on PostgreSQL with sequential scans and sorts priced
// out, as on a large table), names the index. A change that loses an
// index, or a statement that no longer fits it, fails here.
#include <gtest/gtest.h>

#include "base/text.h"
#include "data/schema.h"
#include "members/admin_right.h"
#include "members/member_queries.h"
#include "members/user_queries.h"
#include "org/group_queries.h"
#include "support/db_fixture.h"

namespace orvane::data {
namespace {

using orvane::testing::Backend;

class IndexUse : public orvane::testing::DbTest {
 protected:
  // The plan of `sql` as one text, lower case.
  std::string Plan(const Sql& sql) {
    Connection conn;
    EXPECT_TRUE(Com_funDbOpen(Dsn(), "", "", conn).ok());
    Sql explain;
    if (backend() == Backend::kSqlite) {
      explain << "EXPLAIN QUERY PLAN " << sql;
    } else {
      // For this transaction only: the pooled connection keeps its settings.
      EXPECT_TRUE(Com_funBeginTrans(conn).ok());
      EXPECT_TRUE(Com_funExecsql(conn, Sql() << "SET LOCAL enable_seqscan = off").ok());
      EXPECT_TRUE(Com_funExecsql(conn, Sql() << "SET LOCAL enable_sort = off").ok());
      explain << "EXPLAIN " << sql;
    }
    Recordset rs;
    Array2D cells;
    EXPECT_TRUE(Com_funSelect(conn, explain, rs).ok());
    EXPECT_TRUE(Com_funRecodsetToArray(rs, cells).ok());
    EXPECT_TRUE(Com_funRollbackTrans(conn).ok());
    std::string plan;
    for (const auto& column : cells) plan += text::Join(column, " ") + " ";
    for (char& c : plan) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    return plan;
  }
};

TEST_P(IndexUse, EveryReadStatementFindsItsIndex) {
  ConfigFile config(ConfigPath());
  RequestContext ctx(config, session(), app(), clock());
  struct Case {
    Sql sql;
    const char* index;
  } cases[] = {
      {members::AllUserListSql(ctx, "name", "0", ""), "ix_t_user_name_kj"},
      {members::AllUserListSql(ctx, "name", "1", ""), "ix_t_user_name_kj"},
      {members::AllUserListSql(ctx, "post", "0", ""), "ix_t_user_post_nm"},
      {members::AllUserListSql(ctx, "mail", "0", ""), "ix_t_user_dsp_nm"},
      {members::AllUserListSql(ctx, "term", "1", ""), "ix_t_user_mail"},
      {members::AllCountSql(ctx, "U", "3"), "ix_t_user_name_kn"},
      {members::UsersGroupSql(ctx, "u1"), "ix_t_secmember_user_id"},
      {org::TopGroupSql(ctx), "ix_t_section_joi_sec_sec_seq"},
      {org::OtherGroupsSql(ctx), "ix_t_section_list_order"},  // an expression index, in the list's order
  };
  for (const Case& c : cases) EXPECT_NE(Plan(c.sql).find(c.index), std::string::npos) << c.sql.Render();
  // A deep page skips through the index alone, a kana row's page by name
  // through the one index that holds the row and the order.
  for (const Case& c : {Case{members::KeyedUserPageSql(ctx, "name", "0", "", 32717, 50), "ix_t_user_name_kj_user_id"},
                        Case{members::KeyedUserPageSql(ctx, "name", "1", "", 32717, 50), "ix_t_user_name_kj_user_id"},
                        Case{members::KeyedUserPageSql(ctx, "post", "0", "", 32717, 50), "ix_t_user_post_nm_user_id"},
                        Case{members::KeyedUserPageSql(ctx, "name", "0", "0", 11292, 50), "ix_t_user_kana_name"},
                        Case{members::KeyedUserPageSql(ctx, "name", "1", "9", 100, 50), "ix_t_user_kana_name"}}) {
    std::string plan = Plan(c.sql);
    EXPECT_NE(plan.find(c.index), std::string::npos) << plan;
    EXPECT_NE(plan.find(backend() == Backend::kSqlite ? "covering index" : "index only scan"), std::string::npos)
        << plan;
    if (backend() == Backend::kSqlite) {
      // The only sort is the page's own few rows, after the skip.
      size_t sort = plan.find("temp b-tree");
      EXPECT_TRUE(sort == std::string::npos || sort > plan.find("scan k")) << plan;
    } else {
      EXPECT_EQ(plan.find("sort"), std::string::npos) << plan;
    }
  }
  // The id order and a section's members go by the primary keys.
  std::string by_id = Plan(members::AllUserListSql(ctx, "id", "0", ""));
  std::string members = Plan(members::SpecificMemberSql(ctx, "0001", "name", "0", "", "20240401"));
  // The right read on every request over HTTP: both rows by their keys.
  std::string right = Plan(members::AdminRightSql("admin", "MENU50"));
  if (backend() == Backend::kSqlite) {
    EXPECT_NE(right.find("sqlite_autoindex_t_user"), std::string::npos) << right;
    EXPECT_NE(right.find("sqlite_autoindex_menu_user"), std::string::npos) << right;
  } else {
    EXPECT_NE(right.find("t_user_pkey"), std::string::npos) << right;
    EXPECT_NE(right.find("menu_user_pkey"), std::string::npos) << right;
  }
  if (backend() == Backend::kSqlite) {
    EXPECT_NE(by_id.find("sqlite_autoindex_t_user"), std::string::npos) << by_id;
    EXPECT_NE(members.find("sqlite_autoindex_t_secmember"), std::string::npos) << members;
  } else {
    EXPECT_NE(by_id.find("t_user_pkey"), std::string::npos) << by_id;
    EXPECT_NE(members.find("t_secmember_pkey"), std::string::npos) << members;
  }
}

// init-db on a database made before an index existed adds it, and the
// statement finds it again.
TEST_P(IndexUse, InitDbAddsAMissingIndexToAnExistingDatabase) {
  ConfigFile config(ConfigPath());
  RequestContext ctx(config, session(), app(), clock());
  const Sql kana_page = members::KeyedUserPageSql(ctx, "name", "0", "3", 100, 50);
  Exec(Sql() << "drop index IX_T_USER_KANA_NAME");
  EXPECT_EQ(Plan(kana_page).find("ix_t_user_kana_name"), std::string::npos);
  Connection conn;
  ASSERT_TRUE(Com_funDbOpen(Dsn(), "", "", conn).ok());
  ASSERT_TRUE(CreateSchema(conn).ok());
  EXPECT_NE(Plan(kana_page).find("ix_t_user_kana_name"), std::string::npos);
}

ORVANE_DB_TEST_SUITE(IndexUse);

}  // namespace
}  // namespace orvane::data
