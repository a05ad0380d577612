// The failure seam on a real SQLite and PostgreSQL database: each point
// fails the call it was armed for with the armed diagnostic, in the
// routine's own trail, and leaves the state a real failure leaves.
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

TEST_P(FailureSeam, EachPointFailsItsNthCallWithTheArmedDiagnostic) {
  Insert("T_USER", {{"USER_ID", "u1"}});
  const Sql select = Sql() << "select USER_ID from " << Table("T_USER");
  auto on_result = [&](std::function<Status(Recordset&)> step) {
    return [&, step] {
      Recordset rs;
      Status s = Com_funSelect(conn_, select, rs);
      return s.ok() ? step(rs) : s;
    };
  };
  struct Case {
    Point point;
    std::function<Status()> call;
    std::string routine, tail;
  } cases[] = {
      {Point::kOpen,
       [&] {
         Connection c;
         return Com_funDbOpen(Dsn(), "", "", c);
       },
       "Com_funDbOpen", "<BR><BR>SQL : " + Dsn()},
      {Point::kStatement,
       [&] {
         Recordset rs;
         return Com_funSelectP(conn_, select, rs);
       },
       "Com_funSelectP", "<BR><BR>SQL : select USER_ID from T_USER"},
      {Point::kFetch, on_result([](Recordset& rs) {
         std::vector<std::string> values;
         bool eof = false;
         return Com_funfetchData(rs, {"USER_ID"}, values, eof);
       }),
       "Com_funfetchData", ""},
      {Point::kRecordsetClose, on_result([](Recordset& rs) { return Com_funRecordsetClose(rs); }),
       "Com_funRecordsetClose", ""},
      {Point::kArrayCopy, on_result([](Recordset& rs) {
         Array2D out;
         return Com_funRecodsetToArray(rs, out);
       }),
       "Com_funRecodsetToArray", ""},
      {Point::kBegin,
       [&] {
         Status s = Com_funBeginTrans(conn_);
         return s.ok() ? Com_funRollbackTrans(conn_) : s;
       },
       "Com_funBeginTrans", ""},
      // The third call begins again: the failed commit left no transaction open.
      {Point::kCommit,
       [&] {
         Status s = Com_funBeginTrans(conn_);
         return s.ok() ? Com_funCommitTrans(conn_) : s;
       },
       "Com_funCommitTrans", ""},
      {Point::kRollback, [&] { return Com_funRollbackTrans(conn_); }, "Com_funRollbackTrans", ""},
      {Point::kClose,
       [&] {
         Connection c;
         Status s = Com_funDbOpen(Dsn(), "", "", c);
         return s.ok() ? Com_funDbClose(c) : s;
       },
       "Com_funDbClose", ""},
  };
  for (const Case& c : cases) {
    ScopedFailure armed(c.point, 2, "40001", "could not serialize access", -7);
    EXPECT_EQ(c.call().trail(), "") << c.routine;
    Status failed = c.call();
    EXPECT_EQ(failed.code(), 1);
    EXPECT_EQ(failed.trail(), "[" + c.routine + "]エラー番号 -7 [40001] could not serialize access" + c.tail);
    EXPECT_EQ(failed.cause().native, -7);
    EXPECT_EQ(c.call().trail(), "") << c.routine << ": a fired failure is used up";
  }
}

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

TEST_P(FailureSeam, SeveralArmedFailuresCountEachOnTheirOwn) {
  EXPECT_THROW(seam::FailAt(Point::kOpen, 0, "HY000", "never"), std::invalid_argument);
  ScopedFailure f(Point::kRollback, 2, "HY000", "second");
  f.Also(Point::kRollback, 1, "HY000", "first");
  f.Also(Point::kRollback, 1, "HY000", "third");  // due with "first": fires on the call after
  f.Also(Point::kCommit, 1, "HY000", "commit");   // rollbacks do not count for it
  std::vector<std::string> messages;
  for (int i = 0; i < 4; ++i) messages.push_back(Com_funRollbackTrans(conn_).cause().message);
  EXPECT_EQ(messages, (std::vector<std::string>{"first", "second", "third", ""}));
  ASSERT_TRUE(Com_funBeginTrans(conn_).ok());
  EXPECT_EQ(Com_funCommitTrans(conn_).cause().message, "commit");
  seam::FailAt(Point::kBegin, 1, "HY000", "cleared");
  seam::ClearFailures();
  EXPECT_TRUE(Com_funBeginTrans(conn_).ok());
}

ORVANE_DB_TEST_SUITE(FailureSeam);

}  // namespace
}  // namespace orvane::data
