#include "server/search_index.h"

#include <algorithm>
#include <array>
#include <cstdint>
#include <utility>

#include "base/search_fold.h"
#include "data/db.h"

namespace orvane {

// Each row's values as answered and folded as compared, in key order, and
// the folded values of all rows as one text (each ended by a NUL), so that
// a search is one scan of it rather than a comparison per value.
struct SearchIndex::Snapshot {
  template <size_t N>
  struct Row {
    std::array<std::string, N> values, folded;
  };
  template <size_t N>
  using Rows = std::vector<Row<N>>;
  struct Folded {
    std::string text;
    std::vector<size_t> starts;  // where value k (row k / N) starts; then text.size()
  };
  Rows<4> users;   // id, name, reading, mail
  Rows<3> groups;  // code, name, display name
  Folded users_text, groups_text;
};

namespace {

using data::Table;

template <size_t N>
Status Load(data::Connection& conn, const data::Sql& sql, const std::vector<std::string>& names,
            SearchIndex::Snapshot::Rows<N>& rows) {
  return data::SelectRows(conn, sql, names, [&rows](const std::vector<std::string>& v) {
    auto& row = rows.emplace_back();
    for (size_t i = 0; i < N; ++i) {
      row.values[i] = v[i];
      row.folded[i] = text::SearchFold(v[i]);
    }
    return true;
  });
}

// Key order by bytes: the same on every database, whatever its collation.
template <size_t N>
void SortByKey(SearchIndex::Snapshot::Rows<N>& rows) {
  std::sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.values[0] < b.values[0]; });
}

template <size_t N>
void Join(SearchIndex::Snapshot::Rows<N>& rows, SearchIndex::Snapshot::Folded& out) {
  for (auto& row : rows) {
    for (std::string& f : row.folded) {
      out.starts.push_back(out.text.size());
      out.text += f;
      out.text += '\0';
      std::string().swap(f);  // held once, in the text
    }
  }
  out.starts.push_back(out.text.size());
}

Status LoadSnapshot(const ConfigFile& config, SearchIndex::Snapshot& snap) {
  constexpr char kRoutine[] = "SearchIndex";
  std::string dsn;
  if (Status s = config.ComIniFileLoad("LOCAL_DB_DSN", dsn); !s.ok()) return std::move(s).Prefixed(kRoutine);
  data::Connection conn;
  if (Status s = data::Com_funDbOpen(dsn, "", "", conn); !s.ok()) return std::move(s).Prefixed(kRoutine);
  data::Sql users, groups;
  users << "select USER_ID ,NAME_KJ ,NAME_KN ,MAIL from " << Table("T_USER")
        << " where (UPD_KBN is null or UPD_KBN <> '1')";
  groups << "select SEC_CD ,SEC_NM ,DSP_NM from " << Table("T_SECTION") << " where (UPD_KBN is null or UPD_KBN <> '1')";
  Status s = Load(conn, users, {"USER_ID", "NAME_KJ", "NAME_KN", "MAIL"}, snap.users);
  if (s.ok()) s = Load(conn, groups, {"SEC_CD", "SEC_NM", "DSP_NM"}, snap.groups);
  data::Com_funDbClose(conn).IgnoreError();  // read only: nothing to lose
  if (!s.ok()) return std::move(s).Prefixed(kRoutine);
  SortByKey(snap.users);
  SortByKey(snap.groups);
  Join(snap.users, snap.users_text);
  Join(snap.groups, snap.groups_text);
  return Status::Ok();
}

// The indexes of the best `limit` rows (a value equal to `q` first, then
// one starting with it, then one holding it), in key order within each.
template <size_t N>
std::vector<size_t> Best(const SearchIndex::Snapshot::Folded& folded, const std::string& q, size_t limit) {
  std::array<std::vector<size_t>, 3> by_rank;
  size_t row = SIZE_MAX;
  int best = 3;
  auto keep = [&] {
    if (row != SIZE_MAX && best < 3 && by_rank[best].size() < limit) by_rank[best].push_back(row);
  };
  const std::string& text = folded.text;
  const std::vector<size_t>& starts = folded.starts;
  for (size_t pos = text.find(q); pos != std::string::npos;) {
    // No value holds a NUL and neither does q: a match lies inside one value.
    const size_t k = static_cast<size_t>(std::upper_bound(starts.begin(), starts.end(), pos) - starts.begin()) - 1;
    if (k / N != row) {
      keep();
      row = k / N;
      best = 3;
    }
    const size_t start = starts[k], length = starts[k + 1] - start - 1;
    best = std::min(best, pos != start ? 2 : q.size() == length ? 0 : 1);
    // A later match in the same value ranks no better: on to the next value.
    pos = text.find(q, starts[k + 1]);
  }
  keep();
  std::vector<size_t> out;
  for (const auto& bucket : by_rank)
    for (size_t i : bucket)
      if (out.size() < limit) out.push_back(i);
  return out;
}

}  // namespace

SearchIndex::~SearchIndex() {
  std::thread reader;
  {
    std::lock_guard lock(mutex_);
    reader = std::move(reader_);
  }
  if (reader.joinable()) reader.join();
}

Status SearchIndex::Current(const ConfigFile& config, std::shared_ptr<const Snapshot>& out) {
  unsigned long long generation = 0;
  {
    std::lock_guard lock(mutex_);
    if (snapshot_) {
      // A stale copy still answers: a search never waits for a reading.
      if (snapshot_generation_ != generation_ || std::chrono::steady_clock::now() - loaded_at_ >= max_age_)
        StartReadingLocked(config.path());
      out = snapshot_;
      return Status::Ok();
    }
    generation = generation_;
  }
  // No copy at all: read one outside the lock; searches meanwhile read
  // their own.
  const auto started = std::chrono::steady_clock::now();
  auto fresh = std::make_shared<Snapshot>();
  if (Status s = LoadSnapshot(config, *fresh); !s.ok()) return s;
  std::lock_guard lock(mutex_);
  if (!snapshot_) {
    snapshot_ = fresh;
    loaded_at_ = started;
    snapshot_generation_ = generation;  // a change meanwhile: read again on the next search
  }
  out = std::move(fresh);
  return Status::Ok();
}

void SearchIndex::StartReadingLocked(const std::string& config_path) {
  if (reading_) return;                    // it reads again before it stops if the data changed meanwhile
  if (reader_.joinable()) reader_.join();  // finished: it set reading_ false as its last step
  reading_ = true;
  // The tables changed since the copy was read: pass the age limit too.
  loaded_at_ = std::chrono::steady_clock::now();
  reader_ = std::thread(&SearchIndex::ReadUntilCurrent, this, config_path);
}

void SearchIndex::ReadUntilCurrent(std::string config_path) {
  const ConfigFile config(std::move(config_path));
  for (;;) {
    unsigned long long generation = 0;
    {
      std::lock_guard lock(mutex_);
      generation = generation_;
    }
    const auto started = std::chrono::steady_clock::now();
    auto fresh = std::make_shared<Snapshot>();
    Status s = LoadSnapshot(config, *fresh);
    std::shared_ptr<const Snapshot> old;
    {
      std::lock_guard lock(mutex_);
      // A failed reading keeps the old copy; the next stale search tries
      // again. A copy dropped meanwhile stays dropped: its reader asked for
      // rows newer than this reading may hold.
      if (s.ok() && snapshot_) {
        old = std::exchange(snapshot_, std::move(fresh));
        loaded_at_ = started;
        snapshot_generation_ = generation;
      }
    }
    // Freeing a copy of every user takes as long as a slow search: done
    // here, once the searches still holding it are through, rather than in
    // the last of them or under the lock.
    for (int i = 0; i < 1000 && old && old.use_count() > 1; ++i)
      std::this_thread::sleep_for(std::chrono::milliseconds(1));
    old.reset();
    std::lock_guard lock(mutex_);
    // Still reading_: a change meanwhile counted on this thread.
    if (s.ok() && snapshot_ && snapshot_generation_ != generation_) continue;
    reading_ = false;
    return;
  }
}

void SearchIndex::Changed(const ConfigFile& config) {
  std::lock_guard lock(mutex_);
  ++generation_;
  if (snapshot_) StartReadingLocked(config.path());
}

void SearchIndex::Invalidate() {
  std::lock_guard lock(mutex_);
  snapshot_.reset();
  ++generation_;
}

Status SearchIndex::Search(const ConfigFile& config, std::string_view query, size_t limit, SearchResult& out) {
  out = {};
  const std::string q = text::SearchFold(query);
  if (q.empty() || q.find('\0') != std::string::npos) return Status::Ok();
  std::shared_ptr<const Snapshot> snap;
  if (Status s = Current(config, snap); !s.ok()) return s;
  for (size_t i : Best<4>(snap->users_text, q, limit)) {
    const auto& v = snap->users[i].values;
    out.users.push_back({v[0], v[1], v[2], v[3]});
  }
  for (size_t i : Best<3>(snap->groups_text, q, limit)) {
    const auto& v = snap->groups[i].values;
    out.groups.push_back({v[0], v[1], v[2]});
  }
  return Status::Ok();
}

}  // namespace orvane
