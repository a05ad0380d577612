// Reading the change history: the entries a filter selects, newest first,
// a page at a time, each with the row images of its change (docs/history.md).
#pragma once

#include <string>
#include <vector>

#include "base/status.h"
#include "data/db.h"
#include "dispatch/request_fields.h"

namespace orvane::history {

struct Filter {
  std::string user;   // made by this user (the session's id)
  std::string about;  // touching this user's rows
  std::string group;  // touching this group's rows
  std::string code;   // this request code
  std::string since;  // YYYY-MM-DD, that day included
  std::string until;  // YYYY-MM-DD, that day included
  long before = 0;    // entries older than this one (the next page)
  int limit = 50;
};
inline constexpr int kMaxLimit = 200;
// The row images shown with one entry; the rest are counted.
inline constexpr int kChangesShown = 50;

struct RowChange {
  std::string table, action, key, label;
  std::string before, after;    // JSON objects as kept ("" for none)
  std::string sec_cd, user_id;  // the row's SEC_CD and USER_ID, when it has them
  // Their names as they read today, else as the page's images last had
  // them; "" when neither knows.
  std::string group_name, user_name;
};

struct Entry {
  long id = 0;
  std::string time, user, user_name, address, code, fields, answer;
  long undoes = 0, undone_by = 0;  // 0 for none
  std::vector<RowChange> changes;  // at most kChangesShown
  long change_count = 0;           // all of them
};

// The filter named by request parameters (user, about, group, code, since,
// until, before, limit). A bad value is refused naming the parameter:
// "limit: a whole number from 1 to 200".
Status ParseFilter(const NamedValues& params, Filter& filter);

// One page: up to filter.limit entries, newest first; `next` is the
// `before` of the page after it, 0 when there is none.
Status ReadHistory(data::Connection& conn, const Filter& filter, std::vector<Entry>& entries, long& next);

}  // namespace orvane::history
