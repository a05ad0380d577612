#include "history/history_words.h"

#include <algorithm>
#include <map>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "data/history_schema.h"

namespace orvane::history {
namespace {

using json = nlohmann::json;

std::string ColumnWord(const std::string& column) {
  static const std::map<std::string, std::string, std::less<>> words = {
      {"SEC_NM", "name"},
      {"DSP_NM", "display"},
      {"JOI_SEC", "parent"},
      {"SEC_SEQ", "order"},
      {"TREE_NM", "path"},
      {"SEC_TREE", "path codes"},
      {"BUSHO_CD", "department"},
      {"IMAIL_LIST", "mailing list"},
      {"NAME_KJ", "name"},
      {"NAME_KN", "reading"},
      {"MAIL", "mail address"},
      {"PASSWORD", "password"},
      {"PASSWORD_YMD", "password date"},
      {"EXT_TEL", "extension"},
      {"POST_NM", "title"},
      {"POST_CD", "post"},
      {"SEC_KBN", "primary"},
      {"USER_SEQ", "order"},
      {"ST_YMD", "from"},
      {"ED_YMD", "until"},
      {"MAIL_NM", "mail name"},
      {"IMAIL_FLG", "mail"},
      {"MAIL_USE_FLG", "mail use"},
  };
  if (auto it = words.find(column); it != words.end()) return it->second;
  if (column.starts_with("MENU")) return "menu " + column.substr(4);
  return column;
}

std::string TableWord(std::string_view table) {
  std::string_view base = table;
  bool work = base.ends_with("_WORK");
  if (work) base.remove_suffix(5);
  std::string word = base == "T_SECTION"     ? "group"
                     : base == "T_USER"      ? "user"
                     : base == "T_SECMEMBER" ? "membership"
                     : base == "MENU_USER"   ? "menu rights"
                     : base == "T_PASSGEN"   ? "password history"
                                             : std::string(base);
  return work ? word + " (work copy)" : word;
}

// A null column and an empty one read alike.
std::string Text(const json& v) {
  if (v.is_null() || (v.is_string() && v.get<std::string>().empty())) return "(empty)";
  if (v.is_string()) return v.get<std::string>();
  return v.dump();
}

// Names first, then where the row stands, then the rest by column name.
int Rank(const std::string& column) {
  static const std::vector<std::string> first = {"SEC_NM",  "NAME_KJ", "NAME_KN",  "DSP_NM", "JOI_SEC",
                                                 "TREE_NM", "SEC_SEQ", "USER_SEQ", "MAIL"};
  auto it = std::find(first.begin(), first.end(), column);
  return it == first.end() ? static_cast<int>(first.size()) : static_cast<int>(it - first.begin());
}

json Parse(const std::string& s) {
  json j = json::parse(s, nullptr, false);
  return j.is_object() ? j : json::object();
}

}  // namespace

std::string OperationName(std::string_view code) {
  static const std::map<std::string, std::string, std::less<>> names = {
      {"201", "group added"},
      {"202", "group saved"},
      {"203", "group deleted"},
      {"204", "user added"},
      {"205", "user saved"},
      {"206", "user deleted"},
      {"207", "membership added"},
      {"208", "membership changed"},
      {"209", "membership removed"},
      {"210", "group order changed"},
      {"211", "member order changed"},
      {"212", "group moved"},
      {"213", "menu rights saved"},
      {"undo", "undo"},
      {"restore-user", "user restored"},
      {"restore-group", "group restored"},
      {"import", "import"},
  };
  if (auto it = names.find(code); it != names.end()) return it->second;
  return std::string(code);
}

std::string DescribeChange(const RowChange& c) {
  auto named = [](const std::string& name, const std::string& code) {
    return name.empty() || name == code ? code : name + " (" + code + ")";
  };
  std::string out = TableWord(c.table) + " ";
  if (c.table.starts_with("T_SECMEMBER") && !c.user_id.empty()) {
    out += named(c.user_name, c.user_id) + " in " + named(c.group_name, c.sec_cd);
  } else if (!c.label.empty()) {
    out += named(c.label, c.key);
  } else if (!c.user_id.empty() && c.key == c.user_id) {
    out += named(c.user_name, c.key);
  } else if (!c.sec_cd.empty() && c.key == c.sec_cd) {
    out += named(c.group_name, c.key);
  } else {
    out += c.key;
  }
  if (c.action == "insert") return out + ": added";
  if (c.action == "delete") return out + ": deleted";
  json before = Parse(c.before), after = Parse(c.after);
  std::vector<std::string> columns;
  for (auto& [column, value] : after.items())
    if (!column.starts_with("UPD_")) columns.push_back(column);  // the stamp every write sets
  std::stable_sort(columns.begin(), columns.end(),
                   [](const std::string& a, const std::string& b) { return Rank(a) < Rank(b); });
  std::string changed;
  for (const std::string& column : columns) {
    const std::string was = Text(before.value(column, json())), is = Text(after[column]);
    if (was == is) continue;
    if (!changed.empty()) changed += ", ";
    const std::string word = ColumnWord(column);
    changed += data::IsPasswordColumn(column) ? word + " changed" : word + " " + was + " -> " + is;
  }
  return out + ": " + (changed.empty() ? "stamp only" : changed);
}

std::string Summary(const Entry& e) {
  if (e.changes.empty()) {
    if (e.answer == "OK") return "no change";
    std::string first = e.answer.substr(0, e.answer.find_first_of("\r\n"));
    return "refused: " + first;
  }
  std::string out;
  size_t shown = 0;
  for (const RowChange& c : e.changes) {
    if (shown == 3) break;
    if (shown) out += "; ";
    out += DescribeChange(c);
    ++shown;
  }
  long more = std::max<long>(e.change_count, static_cast<long>(e.changes.size())) - static_cast<long>(shown);
  if (more > 0) out += " (+" + std::to_string(more) + " more)";
  return out;
}

}  // namespace orvane::history

namespace orvane::history {

bool Undoable(const Entry& e) {
  static const std::set<std::string, std::less<>> codes = {"202", "207", "208", "209", "210", "211", "212", "213"};
  return e.answer == "OK" && e.undone_by == 0 && !e.changes.empty() && codes.contains(e.code);
}

}  // namespace orvane::history
