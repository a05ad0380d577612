// The open connections of one server: their number (the connection cap),
// and at a stop the means to end the ones waiting to read and to wait for
// the rest. A connection's entry is touched only on its own I/O thread, except
// for its place in the set. Thread-safe.
#pragma once

#include <boost/asio/any_io_executor.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/post.hpp>
#include <chrono>
#include <condition_variable>
#include <memory>
#include <mutex>
#include <unordered_set>

namespace orvane {

class ConnectionSet {
 public:
  struct Entry {
    boost::asio::any_io_executor executor;           // the connection's I/O thread
    boost::asio::ip::tcp::socket* socket = nullptr;  // valid while `open`
    bool open = true;
    bool reading = false;  // waiting for a request's bytes: a stop cancels the read
  };

  // A new entry, or null when `cap` connections are open already.
  std::shared_ptr<Entry> TryAdd(boost::asio::any_io_executor executor, size_t cap) {
    std::lock_guard lock(mu_);
    if (entries_.size() >= cap) return nullptr;
    auto entry = std::make_shared<Entry>();
    entry->executor = std::move(executor);
    entries_.insert(entry);
    return entry;
  }

  // On the entry's I/O thread, as the connection ends.
  void Remove(const std::shared_ptr<Entry>& entry) {
    entry->open = false;
    std::lock_guard lock(mu_);
    entries_.erase(entry);
    if (entries_.empty()) emptied_.notify_all();
  }

  // Cancels every read a connection is waiting on (each on its I/O thread).
  void CancelReads() {
    std::lock_guard lock(mu_);
    for (const auto& entry : entries_) {
      boost::asio::post(entry->executor, [entry] {
        boost::system::error_code ignored;
        if (entry->open && entry->reading) entry->socket->cancel(ignored);
      });
    }
  }

  // False when connections are still open after `limit`.
  bool WaitEmpty(std::chrono::milliseconds limit) {
    std::unique_lock lock(mu_);
    return emptied_.wait_for(lock, limit, [this] { return entries_.empty(); });
  }

 private:
  std::mutex mu_;
  std::condition_variable emptied_;
  std::unordered_set<std::shared_ptr<Entry>> entries_;  // guarded by mu_
};

}  // namespace orvane
