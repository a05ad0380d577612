// The failure seam on a real SQLite and PostgreSQL database: a failure it
// makes leaves the state a real failure leaves, so the rollback paths the
// request tests drive through it are the real ones.
#include "support/failure_seam.h"

#include <gtest/gtest.h>

#include <functional>
#include <stdexcept>

#include "data/connection_pool.h"
#include "data/db.h"
#include "support/db_fixture.h"

namespace orvane::data {
namespace {

using orvane::testing::DbTest;
using orvane::testing::Point;
using orvane::testing::ScopedFailure;

class FailureSeam : public DbTest {
 protected:
  void SetUp() override {
    DbTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ASSERT_TRUE(Com_funDbOpen(Dsn(), "", "", conn_).ok());
  }
  void TearDown() override {
    conn_ = Connection();
    DbTest::TearDown();
  }
  Status InsertUser(const char* id) {
    return Com_funExecsql(conn_,
                          Sql() << "insert into " << Table("T_USER") << " (USER_ID) values (" << Quoted(id) << ")");
  }
  std::string UserCount() { return Rows(Sql() << "select count(*) from " << Table("T_USER"))[0][0]; }

  Connection conn_;
};

TEST_P(FailureSeam, AFailureLeavesWhatTheDatabasesOwnWould) {
  // A refused statement rolls its unit back; the unit fails until rolled back.
  ASSERT_TRUE(Com_funBeginTrans(conn_).ok());
  EXPECT_TRUE(InsertUser("a").ok());
  {
    ScopedFailure f(Point::kStatement, 1, "40P01", "deadlock detected");
    EXPECT_EQ(InsertUser("b").trail(),
              "[Com_funExecsql]エラー番号 0 [40P01] deadlock detected<BR><BR>SQL : insert into T_USER (USER_ID) "
              "values ('b')");
  }
  EXPECT_EQ(InsertUser("c").cause().sqlstate, "25000");
  EXPECT_EQ(Com_funCommitTrans(conn_).cause().sqlstate, "25000");
  EXPECT_TRUE(Com_funRollbackTrans(conn_).ok());
  EXPECT_EQ(UserCount(), "0");

  // A failed commit commits nothing and leaves no transaction open.
  ASSERT_TRUE(Com_funBeginTrans(conn_).ok());
  EXPECT_TRUE(InsertUser("d").ok());
  {
    ScopedFailure f(Point::kCommit, 1, "40001", "serialization failure");
    EXPECT_FALSE(Com_funCommitTrans(conn_).ok());
  }
  EXPECT_TRUE(Com_funRollbackTrans(conn_).ok());
  EXPECT_TRUE(InsertUser("e").ok());  // autocommitted
  EXPECT_EQ(UserCount(), "1");

  // A failed begin opens nothing: the next statement is autocommitted.
  {
    ScopedFailure f(Point::kBegin, 1, "HY000", "begin refused");
    EXPECT_FALSE(Com_funBeginTrans(conn_).ok());
  }
  EXPECT_TRUE(InsertUser("f").ok());
  EXPECT_EQ(UserCount(), "2");

  // A failed rollback leaves the transaction open; the pool rolls it back.
  ASSERT_TRUE(Com_funBeginTrans(conn_).ok());
  EXPECT_TRUE(InsertUser("g").ok());
  {
    ScopedFailure f(Point::kRollback, 1, "HY000", "rollback refused");
    EXPECT_FALSE(Com_funRollbackTrans(conn_).ok());
  }
  EXPECT_EQ(Com_funBeginTrans(conn_).cause().message, "A transaction is already open");
  EXPECT_TRUE(Com_funDbClose(conn_).ok());
  EXPECT_EQ(UserCount(), "2");

  // Failed closes free the handle all the same; a lost connection is not
  // pooled again.
  ConnectionPool& pool = ConnectionPool::Instance();
  for (const char* sqlstate : {"HY000", "08S01"}) {
    ASSERT_TRUE(Com_funDbOpen(Dsn(), "", "", conn_).ok());
    Recordset rs;
    ASSERT_TRUE(Com_funSelect(conn_, Sql() << "select USER_ID from " << Table("T_USER"), rs).ok());
    size_t idle = pool.IdleCount();
    ScopedFailure f(Point::kRecordsetClose, 1, sqlstate, "close failed");
    f.Also(Point::kClose, 1, sqlstate, "close failed");
    EXPECT_FALSE(Com_funRecordsetClose(rs).ok());
    EXPECT_FALSE(rs.IsOpen());
    EXPECT_FALSE(Com_funDbClose(conn_).ok());
    EXPECT_FALSE(conn_.IsOpen());
    EXPECT_EQ(pool.IdleCount(), std::string_view(sqlstate) == "08S01" ? idle : idle + 1) << sqlstate;
  }
}

ORVANE_DB_TEST_SUITE(FailureSeam);

}  // namespace
}  // namespace orvane::data
