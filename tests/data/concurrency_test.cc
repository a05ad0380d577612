// The connection pool, on both backends.
#include <gtest/gtest.h>

#include "data/connection_pool.h"
#include "data/db.h"
#include "support/db_fixture.h"
#include "support/status_code.h"

namespace orvane::data {

using orvane::testing::Code;
namespace {

using testing::Backend;
using Concurrency = testing::DbTest;

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
