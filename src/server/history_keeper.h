// The server's care of the change history: at start and then once a day it
// purges the entries older than the retention period, and every hour it
// reads the history's size, both shown on /metrics. One thread, ended by
// the keeper's destruction (it wakes at once).
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "server/server_state.h"

namespace orvane {

class HistoryKeeper {
 public:
  explicit HistoryKeeper(ServerState& state, std::chrono::seconds size_every = std::chrono::hours(1),
                         std::chrono::seconds purge_every = std::chrono::hours(24));
  ~HistoryKeeper();
  HistoryKeeper(const HistoryKeeper&) = delete;
  HistoryKeeper& operator=(const HistoryKeeper&) = delete;

  // One round now: purge when `purge`, then read the size. A purge that
  // removed something, and any failure, is one line on stderr.
  void Round(bool purge);

 private:
  void Run();

  ServerState& state_;
  std::chrono::seconds size_every_, purge_every_;
  std::mutex mu_;
  std::condition_variable wake_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace orvane
