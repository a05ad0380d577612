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
#include "members/membership.h"
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
  RequestContext& ctx = Context();
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
      {members::MembersChangedSql(ctx, "20240401", "102030"), "ix_t_secmember_upd_ymd"},
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
  // The id order, a section's members and the right read on every request
  // over HTTP (both rows) go by the primary keys.
  const bool sqlite = backend() == Backend::kSqlite;
  for (auto [sql, table] : {std::pair{members::AllUserListSql(ctx, "id", "0", ""), "t_user"},
                            {members::SpecificMemberSql(ctx, "0001", "name", "0", "", "20240401"), "t_secmember"},
                            {members::AdminRightSql("admin", "MENU50"), "t_user"},
                            {members::AdminRightSql("admin", "MENU50"), "menu_user"}}) {
    std::string plan = Plan(sql);
    EXPECT_NE(plan.find(sqlite ? "sqlite_autoindex_" + std::string(table) : table + std::string("_pkey")),
              std::string::npos)
        << plan;
  }
}

// init-db on a database made before an index existed adds it, and the
// statement finds it again.
TEST_P(IndexUse, InitDbAddsAMissingIndexToAnExistingDatabase) {
  const Sql kana_page = members::KeyedUserPageSql(Context(), "name", "0", "3", 100, 50);
  Exec(Sql() << "drop index IX_T_USER_KANA_NAME");
  EXPECT_EQ(Plan(kana_page).find("ix_t_user_kana_name"), std::string::npos);
  ASSERT_TRUE(CreateSchema(Db()).ok());
  EXPECT_NE(Plan(kana_page).find("ix_t_user_kana_name"), std::string::npos);
}

ORVANE_DB_TEST_SUITE(IndexUse);

}  // namespace
}  // namespace orvane::data
