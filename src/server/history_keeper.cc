#include "server/history_keeper.h"

#include <iostream>

#include "data/db.h"
#include "history/history_retention.h"

namespace orvane {

HistoryKeeper::HistoryKeeper(ServerState& state, std::chrono::seconds size_every, std::chrono::seconds purge_every)
    : state_(state), size_every_(size_every), purge_every_(purge_every), thread_([this] { Run(); }) {}

HistoryKeeper::~HistoryKeeper() {
  {
    std::lock_guard lock(mu_);
    stop_ = true;
  }
  wake_.notify_all();
  thread_.join();
}

void HistoryKeeper::Round(bool purge) {
  const int days = history::RetentionDays(state_.config);
  std::string dsn;
  data::Connection conn;
  Status s = state_.config.ComIniFileLoad("LOCAL_DB_DSN", dsn);
  if (s.ok()) s = data::Com_funDbOpen(dsn, "", "", conn);
  long purged = 0;
  const std::string cutoff = history::RetentionCutoff(state_.clock, days);
  if (s.ok() && purge) s = history::PurgeHistory(conn, cutoff, purged);
  long long bytes = -1;
  if (s.ok()) s = history::HistoryBytes(conn, bytes);
  if (conn.IsOpen()) data::Com_funDbClose(conn).IgnoreError();  // nothing is left to commit
  state_.metrics.NoteHistory(days, bytes);
  if (!s.ok()) {
    std::cerr << "orvane serve: change history: " << s.cause().message << "\n";
  } else if (purged > 0) {
    std::cerr << "orvane serve: change history: purged " << purged << " entries older than " << cutoff << "\n";
  }
}

void HistoryKeeper::Run() {
  using Clock = std::chrono::steady_clock;
  Clock::time_point next_purge = Clock::now();
  std::unique_lock lock(mu_);
  while (!stop_) {
    const bool purge = Clock::now() >= next_purge;
    if (purge) next_purge = Clock::now() + purge_every_;
    lock.unlock();
    Round(purge);
    lock.lock();
    wake_.wait_for(lock, std::min<Clock::duration>(size_every_, next_purge - Clock::now()), [this] { return stop_; });
  }
}

}  // namespace orvane
