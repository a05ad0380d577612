#include "history/history_read.h"

#include <limits>
#include <map>
#include <optional>
#include <set>

#include "base/text.h"
#include "base/whole_number.h"
#include "data/history_schema.h"

namespace orvane::history {
namespace {

using data::Quoted;
using data::Sql;
using data::Table;

bool IsDate(const std::string& s) {
  if (s.size() != 10 || s[4] != '-' || s[7] != '-') return false;
  for (size_t i : {0, 1, 2, 3, 5, 6, 8, 9})
    if (s[i] < '0' || s[i] > '9') return false;
  return true;
}

// `ids` as "cast(? as bigint), ..." with each id bound.
void IdList(Sql& sql, const std::vector<std::string>& ids) {
  for (size_t i = 0; i < ids.size(); ++i) {
    if (i) sql << ", ";
    sql << "cast(" << Quoted(ids[i]) << " as bigint)";
  }
}

long ToLong(const std::string& s) {
  return static_cast<long>(ParseWholeNumber(s, 0, std::numeric_limits<long>::max()).value_or(0));
}

// The names of up to 500 of `keys` from the live `table`, over those
// already known (a page naming more shows the rest by code).
Status ReadNames(data::Connection& conn, std::string_view table, data::SqlText key, data::SqlText name,
                 const std::set<std::string>& keys, std::map<std::string, std::string>& names) {
  if (keys.empty()) return Status::Ok();
  Sql sql;
  sql << "select " << key << ", " << name << " from " << Table(table) << " where " << key << " in (";
  size_t n = 0;
  for (const std::string& k : keys) {
    if (n == 500) break;
    if (n++) sql << ", ";
    sql << Quoted(k);
  }
  sql << ")";
  return data::SelectRows(conn, sql, {std::string(key.text), std::string(name.text)},
                          [&](const std::vector<std::string>& v) {
                            names[v[0]] = v[1];
                            return true;
                          });
}

}  // namespace

Status ParseFilter(const NamedValues& params, Filter& filter) {
  filter.user = params.Get("user");
  filter.about = params.Get("about");
  filter.group = params.Get("group");
  filter.code = params.Get("code");
  filter.since = params.Get("since");
  filter.until = params.Get("until");
  for (const char* name : {"since", "until"})
    if (std::string v = params.Get(name); !v.empty() && !IsDate(v))
      return Status::Refused(std::string(name) + ": a date as YYYY-MM-DD");
  if (std::string before = params.Get("before"); !before.empty()) {
    std::optional<long long> n = ParseWholeNumber(before, 1, std::numeric_limits<long>::max(), {.minus_sign = false});
    if (!n) return Status::Refused("before: an entry number");
    filter.before = static_cast<long>(*n);
  }
  if (std::string limit = params.Get("limit"); !limit.empty()) {
    std::optional<long long> n = ParseWholeNumber(limit, 1, kMaxLimit, {.minus_sign = false});
    if (!n) return Status::Refused("limit: a whole number from 1 to 200");
    filter.limit = static_cast<int>(*n);
  }
  return Status::Ok();
}

Status ReadHistory(data::Connection& conn, const Filter& f, std::vector<Entry>& entries, long& next) {
  constexpr char kRoutine[] = "ReadHistory";
  entries.clear();
  next = 0;
  const data::Columns columns{"ID", "ENTRY_TIME", "USER_ID", "ADDRESS", "CODE", "FIELDS", "ANSWER", "UNDOES"};
  Sql sql;
  sql << "select " << columns << " from " << Table(data::kHistoryTable) << " where 1 = 1";
  std::string before = std::to_string(f.before);
  if (f.before > 0) sql << " and ID < cast(" << Quoted(before) << " as bigint)";
  if (!f.user.empty()) sql << " and USER_ID = " << Quoted(f.user);
  if (!f.code.empty()) sql << " and CODE = " << Quoted(f.code);
  std::string since = f.since, until = f.until + " 99";  // past any time of that day
  if (!f.since.empty()) sql << " and ENTRY_TIME >= " << Quoted(since);
  if (!f.until.empty()) sql << " and ENTRY_TIME < " << Quoted(until);
  if (!f.group.empty())
    sql << " and ID in (select ENTRY_ID from " << Table(data::kHistoryRowTable)
        << " where ROW_SEC_CD = " << Quoted(f.group) << ")";
  if (!f.about.empty())
    sql << " and ID in (select ENTRY_ID from " << Table(data::kHistoryRowTable)
        << " where ROW_USER_ID = " << Quoted(f.about) << ")";
  sql << " order by ID desc";
  sql.Page(0, f.limit + 1);
  Status read = data::SelectRows(conn, sql, columns.FetchNames(), [&](const std::vector<std::string>& v) {
    if (static_cast<int>(entries.size()) == f.limit) {
      next = entries.back().id;
      return false;
    }
    Entry e;
    e.id = ToLong(v[0]);
    e.time = v[1];
    e.user = v[2];
    e.address = v[3];
    e.code = v[4];
    e.fields = v[5];
    e.answer = v[6];
    e.undoes = ToLong(v[7]);
    entries.push_back(std::move(e));
    return true;
  });
  if (!read.ok()) return std::move(read).Prefixed(kRoutine);
  if (entries.empty()) return Status::Ok();

  std::vector<std::string> ids;
  std::map<long, Entry*> by_id;
  std::set<std::string> users;
  for (Entry& e : entries) {
    ids.push_back(std::to_string(e.id));
    by_id[e.id] = &e;
    if (!e.user.empty()) users.insert(e.user);
  }
  // Each entry's first images and how many there are, in one statement.
  const data::Columns rows{"ENTRY_ID",     "ROW_TABLE",   "ROW_ACTION", "ROW_KEY",    "ROW_LABEL",
                           "BEFORE_IMAGE", "AFTER_IMAGE", "CNT",        "ROW_SEC_CD", "ROW_USER_ID"};
  Sql changes;
  changes << "select " << rows << " from (select ENTRY_ID, ROW_TABLE, ROW_ACTION, ROW_KEY, ROW_LABEL, BEFORE_IMAGE,"
          << " AFTER_IMAGE, ROW_SEC_CD, ROW_USER_ID, row_number() over (partition by ENTRY_ID order by ID) as RN,"
          << " count(*) over (partition by ENTRY_ID) as CNT, ID from " << Table(data::kHistoryRowTable)
          << " where ENTRY_ID in (";
  IdList(changes, ids);
  static_assert(kChangesShown == 50);
  changes << ")) R where RN <= 50 order by ENTRY_ID, ID";
  read = data::SelectRows(conn, changes, rows.FetchNames(), [&](const std::vector<std::string>& v) {
    auto it = by_id.find(ToLong(v[0]));
    if (it == by_id.end()) return true;
    it->second->changes.push_back(RowChange{.table = v[1],
                                            .action = v[2],
                                            .key = v[3],
                                            .label = v[4],
                                            .before = v[5],
                                            .after = v[6],
                                            .sec_cd = v[8],
                                            .user_id = v[9],
                                            .group_name = {},
                                            .user_name = {}});
    it->second->change_count = ToLong(v[7]);
    return true;
  });
  if (!read.ok()) return std::move(read).Prefixed(kRoutine);

  Sql undone;
  undone << "select ID, UNDOES from " << Table(data::kHistoryTable) << " where UNDOES in (";
  IdList(undone, ids);
  undone << ")";
  read = data::SelectRows(conn, undone, {"ID", "UNDOES"}, [&](const std::vector<std::string>& v) {
    if (auto it = by_id.find(ToLong(v[1])); it != by_id.end()) it->second->undone_by = ToLong(v[0]);
    return true;
  });
  if (!read.ok()) return std::move(read).Prefixed(kRoutine);

  // Names as they read today, else as the page's own images had them.
  std::set<std::string> groups;
  std::map<std::string, std::string> user_names, group_names;
  for (const Entry& e : entries) {
    for (const RowChange& c : e.changes) {
      if (!c.user_id.empty()) users.insert(c.user_id);
      if (!c.sec_cd.empty()) groups.insert(c.sec_cd);
      if (c.label.empty()) continue;
      if (c.table.starts_with("T_USER")) user_names.emplace(c.user_id, c.label);
      if (c.table.starts_with("T_SECTION")) group_names.emplace(c.sec_cd, c.label);
    }
  }
  if (Status s = ReadNames(conn, "T_USER", "USER_ID", "NAME_KJ", users, user_names); !s.ok())
    return std::move(s).Prefixed(kRoutine);
  if (Status s = ReadNames(conn, "T_SECTION", "SEC_CD", "SEC_NM", groups, group_names); !s.ok())
    return std::move(s).Prefixed(kRoutine);
  auto name = [](const std::map<std::string, std::string>& names, const std::string& key) {
    auto it = names.find(key);
    return it == names.end() ? std::string() : it->second;
  };
  for (Entry& e : entries) {
    e.user_name = name(user_names, e.user);
    for (RowChange& c : e.changes) {
      c.user_name = name(user_names, c.user_id);
      c.group_name = name(group_names, c.sec_cd);
    }
  }
  return Status::Ok();
}

}  // namespace orvane::history
