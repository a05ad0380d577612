// What the search box finds: users by id, name, reading and mail, groups by
// code, name and display name, compared folded (base/search_fold.h). The
// live tables' rows not marked deleted are held folded in memory, so an
// answer is a scan of short strings rather than a query per keystroke. The
// copy is read again on a thread of its own after a change through this
// instance, and when older than its age limit (changes through another
// instance or the command line); answers meanwhile come from the old copy,
// so a search never waits for a reading except the very first. A change is
// found once the new copy is in: after the time one reading takes
// (bench/README.md has it at 100,000 users).
// Thread-safe; the destructor waits for a reading under way.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "base/status.h"
#include "dispatch/config.h"

namespace orvane {

struct SearchUser {
  std::string id, name, reading, mail;
};
struct SearchGroup {
  std::string code, name, display;
};
struct SearchResult {
  std::vector<SearchUser> users;
  std::vector<SearchGroup> groups;
};

class SearchIndex {
 public:
  explicit SearchIndex(std::chrono::milliseconds max_age = std::chrono::seconds(30)) : max_age_(max_age) {}
  ~SearchIndex();
  SearchIndex(const SearchIndex&) = delete;
  SearchIndex& operator=(const SearchIndex&) = delete;

  // At most `limit` users and `limit` groups matching `query`: exact
  // matches of a field first, then prefixes, then anywhere; by id or code
  // within each. An empty query finds nothing.
  Status Search(const ConfigFile& config, std::string_view query, size_t limit, SearchResult& out);
  // The data changed: the copy is read again in the background, searches
  // answer from the old one until the new one is in. Nothing is read when
  // no search has asked yet.
  void Changed(const ConfigFile& config);
  // The copy is dropped: the next search reads the tables itself and waits
  // for it (rows written behind the server's back, in tests).
  void Invalidate();

  struct Snapshot;

 private:
  Status Current(const ConfigFile& config, std::shared_ptr<const Snapshot>& out);
  // REQUIRES: mutex_ held.
  void StartReadingLocked(const std::string& config_path);
  void ReadUntilCurrent(std::string config_path);

  const std::chrono::milliseconds max_age_;
  std::mutex mutex_;
  std::shared_ptr<const Snapshot> snapshot_;         // GUARDED_BY(mutex_)
  std::chrono::steady_clock::time_point loaded_at_;  // GUARDED_BY(mutex_)
  unsigned long long generation_ = 0;                // raised by every change; GUARDED_BY(mutex_)
  unsigned long long snapshot_generation_ = 0;       // what snapshot_ has seen; GUARDED_BY(mutex_)
  bool reading_ = false;                             // the reader thread runs; GUARDED_BY(mutex_)
  std::thread reader_;
};

}  // namespace orvane
