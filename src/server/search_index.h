// What the search box finds: users by id, name, reading and mail, groups by
// code, name and display name, compared folded (base/search_fold.h). The
// live tables' rows not marked deleted are held folded in memory, so an
// answer is a scan of short strings rather than a query per keystroke; the
// copy is read again after a change through this instance, and when older
// than its age limit (changes through another instance or the command line).
// Thread-safe.
#pragma once

#include <chrono>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
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

  // At most `limit` users and `limit` groups matching `query`: exact
  // matches of a field first, then prefixes, then anywhere; by id or code
  // within each. An empty query finds nothing.
  Status Search(const ConfigFile& config, std::string_view query, size_t limit, SearchResult& out);
  // The next search reads the tables again.
  void Invalidate();

  struct Snapshot;

 private:
  Status Current(const ConfigFile& config, std::shared_ptr<const Snapshot>& out);

  const std::chrono::milliseconds max_age_;
  std::mutex mutex_;
  std::shared_ptr<const Snapshot> snapshot_;
  std::chrono::steady_clock::time_point loaded_at_;
  unsigned long long generation_ = 0;  // raised by Invalidate
};

}  // namespace orvane
