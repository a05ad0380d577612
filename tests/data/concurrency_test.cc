// Concurrent operations and the connection pool, on both backends.
#include <gtest/gtest.h>

#include <mutex>
#include <thread>

#include "data/connection_pool.h"
#include "data/db.h"
#include "support/db_fixture.h"
#include "support/status_code.h"

namespace orvane::data {

using orvane::testing::Code;
namespace {

using testing::Backend;
using testing::Cells;
using Concurrency = testing::DbTest;

// Two writers that each read, then insert, inside one transaction, as the
// registering operations do: they wait for each other instead of failing.
TEST_P(Concurrency, ReadThenWriteTransactionsQueueUp) {
  constexpr int kThreads = 2, kRounds = 25;
  std::mutex mu;
  std::vector<std::string> failures;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      for (int i = 0; i < kRounds; ++i) {
        Connection conn;
        Recordset rs;
        std::string error, id = std::to_string(t * kRounds + i);
        std::vector<std::string> count;
        bool eof = false;
        if (Code(Com_funDbOpen(Dsn(), "", "", conn), error) || Code(Com_funBeginTrans(conn), error) ||
            Code(Com_funSelect(conn, Sql() << "select count(*) as CNT from " << Table("T_USER"), rs), error) ||
            Code(Com_funfetchData(rs, {"CNT"}, count, eof), error) ||
            Code(Com_funExecsql(conn, Sql() << "insert into " << Table("T_USER") << " (USER_ID, DSP_NM) values ("
                                            << Quoted(id) << ", " << Quoted(count[0]) << ")"),
                 error) ||
            Code(Com_funCommitTrans(conn), error)) {
          std::lock_guard<std::mutex> lock(mu);
          failures.push_back(error);
        }
      }
    });
  }
  for (auto& th : threads) th.join();
  EXPECT_EQ(failures, std::vector<std::string>{});
  EXPECT_EQ(Rows(Sql() << "select count(*) from " << Table("T_USER")), (Cells{{std::to_string(kThreads * kRounds)}}));
}

TEST_P(Concurrency, ThePoolReusesConnectionsUpToItsCapAndDropsLostOnes) {
  ConnectionPool& pool = ConnectionPool::Instance();
  std::string error;
  for (int i = 0; i < 5; ++i) {
    Connection conn;
    ASSERT_EQ(Code(Com_funDbOpen(Dsn(), "", "", conn), error), 0) << error;
  }
  EXPECT_EQ(pool.IdleCount(), 1u);
  pool.set_max_idle(2);
  {
    std::vector<Connection> open(4);
    for (Connection& c : open) ASSERT_EQ(Code(Com_funDbOpen(Dsn(), "", "", c), error), 0) << error;
  }
  EXPECT_EQ(pool.IdleCount(), 2u);
  pool.set_max_idle(ConnectionPool::kDefaultMaxIdle);
  if (GetParam() != Backend::kPostgres) return;  // only a server can end a session

  // A connection whose server session ended reports it once and is then
  // discarded; the next open gets a working one.
  Connection victim, killer;
  Recordset rs;
  std::vector<std::string> pid;
  bool eof = false;
  ASSERT_EQ(Code(Com_funDbOpen(Dsn(), "", "", victim), error) + Code(Com_funDbOpen(Dsn(), "", "", killer), error), 0)
      << error;
  ASSERT_EQ(Code(Com_funSelect(victim, Sql() << "select pg_backend_pid() as PID", rs), error), 0) << error;
  ASSERT_EQ(Code(Com_funfetchData(rs, {"PID"}, pid, eof), error), 0) << error;
  ASSERT_EQ(
      Code(Com_funSelect(killer, Sql() << "select pg_terminate_backend(" << Number(pid[0]) << "::integer)", rs), error),
      0)
      << error;
  ASSERT_EQ(Code(Com_funDbClose(killer), error), 0);
  pool.CloseIdle();
  EXPECT_EQ(Code(Com_funSelect(victim, Sql() << "select 1 as ONE", rs), error), 1);
  EXPECT_TRUE(error.starts_with("[Com_funSelect]エラー番号 ")) << error;
  EXPECT_EQ(Code(Com_funDbClose(victim), error), 0);
  EXPECT_EQ(pool.IdleCount(), 0u);  // discarded, not pooled
  Connection fresh;
  ASSERT_EQ(Code(Com_funDbOpen(Dsn(), "", "", fresh), error), 0) << error;
  EXPECT_EQ(Code(Com_funSelect(fresh, Sql() << "select 1 as ONE", rs), error), 0) << error;
}

ORVANE_DB_TEST_SUITE(Concurrency);

}  // namespace
}  // namespace orvane::data
