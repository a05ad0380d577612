#include "restore/entry_images.h"

#include <limits>
#include <nlohmann/json.hpp>

#include "base/text.h"
#include "base/whole_number.h"
#include "data/history_schema.h"
#include "history/history_read.h"
#include "history/history_retention.h"
#include "history/history_words.h"

namespace orvane::restore {
namespace {

using data::Identifier;
using data::Quoted;
using data::Sql;
using data::Table;
using json = nlohmann::json;

long ToLong(const std::string& s) {
  return static_cast<long>(ParseWholeNumber(s, 0, std::numeric_limits<long>::max()).value_or(0));
}

RowValues ParseImage(const std::string& kept) {
  RowValues out;
  if (kept.empty()) return out;
  json j = json::parse(kept, nullptr, false);
  if (!j.is_object()) return out;
  for (auto& [column, value] : j.items()) {
    if (value.is_null()) {
      out[column] = std::nullopt;
    } else {
      out[column] = value.is_string() ? value.get<std::string>() : value.dump();
    }
  }
  return out;
}

// `key` split at "/" into the table's key columns; false when the counts differ.
bool KeyValues(std::string_view table, const std::string& key, std::vector<std::pair<std::string, std::string>>& out) {
  std::vector<std::string> columns = KeyColumns(table);
  std::vector<std::string> parts = columns.size() == 1 ? std::vector<std::string>{key} : text::Split(key, "/");
  if (columns.empty() || parts.size() != columns.size()) return false;
  for (size_t i = 0; i < columns.size(); ++i) out.emplace_back(columns[i], parts[i]);
  return true;
}

std::string Shown(const std::optional<std::string>& v) {
  if (!v) return "(none)";
  return v->empty() ? "(empty)" : *v;
}

std::string ColumnWord(const std::string& table, const std::string& column) {
  // The history's own word for the column: one change of it put in words.
  history::RowChange one;
  one.table = table;
  one.action = "update";
  one.before = json({{column, "a"}}).dump();
  one.after = json({{column, "b"}}).dump();
  const std::string text = history::DescribeChange(one);
  const size_t end = text.rfind(" a -> b"), start = text.rfind(": ", end);
  if (end == std::string::npos || start == std::string::npos) return column;
  return text.substr(start + 2, end - start - 2);
}

}  // namespace

Status ReadEntry(data::Connection& conn, long id, EntryHead& head, bool& found, long other_than) {
  const std::string key = std::to_string(id);
  found = false;
  Sql sql;
  sql << "select ID, ENTRY_TIME, CODE, ANSWER, FIELDS from " << Table(data::kHistoryTable) << " where ID = cast("
      << Quoted(key) << " as bigint)";
  Status s = data::SelectRows(conn, sql, {"ID", "ENTRY_TIME", "CODE", "ANSWER", "FIELDS"},
                              [&](const std::vector<std::string>& v) {
                                head = EntryHead{ToLong(v[0]), v[1], v[2], v[3], v[4], 0};
                                found = true;
                                return false;
                              });
  if (!s.ok() || !found) return std::move(s).Prefixed("ReadEntry");
  Sql undone;
  undone << "select max(ID) as UNDONE_BY from " << Table(data::kHistoryTable) << " where UNDOES = cast(" << Quoted(key)
         << " as bigint) and ANSWER = 'OK' and ID <> cast(" << Quoted(std::to_string(other_than)) << " as bigint)";
  std::string by;
  s = data::SelectFirstValue(conn, undone, "UNDONE_BY", by);
  head.undone_by = ToLong(by);
  return std::move(s).Prefixed("ReadEntry");
}

Status ReadImages(data::Connection& conn, long id, std::vector<Image>& images) {
  const std::string key = std::to_string(id);
  images.clear();
  Sql sql;
  sql << "select ROW_TABLE, ROW_ACTION, ROW_KEY, BEFORE_IMAGE, AFTER_IMAGE from " << Table(data::kHistoryRowTable)
      << " where ENTRY_ID = cast(" << Quoted(key) << " as bigint) order by ID";
  return data::SelectRows(conn, sql, {"ROW_TABLE", "ROW_ACTION", "ROW_KEY", "BEFORE_IMAGE", "AFTER_IMAGE"},
                          [&](const std::vector<std::string>& v) {
                            images.push_back({v[0], v[1], v[2], ParseImage(v[3]), ParseImage(v[4])});
                            return true;
                          })
      .Prefixed("ReadImages");
}

std::string RetentionStart(const ConfigFile& config, const Clock& clock) {
  return history::RetentionCutoff(clock, history::RetentionDays(config));
}

Status FindDeletion(data::Connection& conn, std::string_view table, std::string_view code, const std::string& key,
                    const std::string& since, long& entry) {
  entry = 0;
  const std::string table_name(table), code_text(code);
  Sql sql;
  sql << "select max(R.ENTRY_ID) as ENTRY_ID from " << Table(data::kHistoryRowTable) << " R join "
      << Table(data::kHistoryTable) << " H on H.ID = R.ENTRY_ID"
      << " where R.ROW_TABLE = " << Quoted(table_name) << " and R.ROW_ACTION = 'delete' and R.ROW_KEY = " << Quoted(key)
      << " and H.CODE = " << Quoted(code_text) << " and H.ANSWER = 'OK' and H.ENTRY_TIME >= " << Quoted(since);
  std::string value;
  Status s = data::SelectFirstValue(conn, sql, "ENTRY_ID", value);
  entry = ToLong(value);
  return std::move(s).Prefixed("FindDeletion");
}

std::vector<std::string> KeyColumns(std::string_view table) {
  std::string_view base = table;
  if (base.ends_with("_WORK")) base.remove_suffix(5);
  if (base == "T_SECTION") return {"SEC_CD"};
  if (base == "T_SECMEMBER") return {"SEC_CD", "USER_ID"};
  if (base == "T_USER" || base == "MENU_USER" || base == "T_PASSGEN") return {"USER_ID"};
  return {};
}

Status ReadRow(data::Connection& conn, std::string_view table, const std::string& key,
               const std::vector<std::string>& columns, RowValues& row, bool& found) {
  row.clear();
  found = false;
  std::vector<std::pair<std::string, std::string>> keys;
  if (!KeyValues(table, key, keys)) return Status::Failure("ReadRow\r\nno key columns for " + std::string(table));
  std::vector<std::string> names = columns;
  if (names.empty()) names.push_back(keys[0].first);
  Sql sql;
  sql << "select ";
  for (size_t i = 0; i < names.size(); ++i) {
    if (i) sql << ", ";
    sql << Identifier(names[i]);
  }
  sql << " from " << Table(table) << " where ";
  for (size_t i = 0; i < keys.size(); ++i) {
    if (i) sql << " and ";
    sql << Identifier(keys[i].first) << " = " << Quoted(keys[i].second);
  }
  // A NULL reads as empty: an image's null compares with "".
  return data::SelectRows(conn, sql, names,
                          [&](const std::vector<std::string>& v) {
                            found = true;
                            for (size_t i = 0; i < names.size(); ++i) row[names[i]] = v[i];
                            return false;
                          })
      .Prefixed("ReadRow");
}

Status InsertRow(data::Connection& conn, std::string_view table, const RowValues& values) {
  Sql sql;
  sql << "insert into " << Table(table) << " (";
  bool first = true;
  for (const auto& [column, value] : values) {
    if (!value) continue;
    if (!first) sql << ", ";
    sql << Identifier(column);
    first = false;
  }
  sql << ") values (";
  first = true;
  for (const auto& [column, value] : values) {
    if (!value) continue;
    if (!first) sql << ", ";
    const bool masked = data::IsPasswordColumn(column) && *value == data::kMaskedValue;
    sql << Quoted(masked ? std::string() : *value);
    first = false;
  }
  sql << ")";
  return data::Com_funExecsql(conn, sql).Prefixed("InsertRow");
}

Status StillAsLeft(data::Connection& conn, const Image& image, bool& same, std::string& what) {
  same = true;
  what.clear();
  RowValues now;
  bool found = false;
  std::vector<std::string> columns;
  for (const auto& [column, value] : image.after)
    if (!data::IsPasswordColumn(column)) columns.push_back(column);
  if (Status s = ReadRow(conn, image.table, image.key, columns, now, found); !s.ok()) return s;
  const std::string row = RowWords(image.table, image.key);
  if (image.action == "delete") {
    if (found) {
      same = false;
      what = row + " was added again since";
    }
    return Status::Ok();
  }
  if (!found) {
    same = false;
    what = row + " was deleted since";
    return Status::Ok();
  }
  for (const auto& [column, left] : image.after) {
    if (data::IsPasswordColumn(column)) continue;  // kept masked: not comparable
    auto it = now.find(column);
    const std::string today = it == now.end() || !it->second ? std::string() : *it->second;
    if (today == left.value_or("")) continue;
    same = false;
    what = row + " changed since: " + ColumnWord(image.table, column) + " is now " + Shown(today) +
           ", the change left " + Shown(left);
    return Status::Ok();
  }
  return Status::Ok();
}

std::string RowWords(std::string_view table, const std::string& key) {
  std::string_view base = table;
  if (base.ends_with("_WORK")) base.remove_suffix(5);
  if (base == "T_SECTION") return "group " + key;
  if (base == "T_USER") return "user " + key;
  if (base == "MENU_USER") return "menu rights of " + key;
  if (base == "T_SECMEMBER") {
    size_t slash = key.find('/');
    if (slash != std::string::npos) return "membership of " + key.substr(slash + 1) + " in " + key.substr(0, slash);
  }
  return std::string(table) + " " + key;
}

}  // namespace orvane::restore
