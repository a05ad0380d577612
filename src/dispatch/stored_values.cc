#include "dispatch/stored_values.h"

#include <algorithm>
#include <cstdio>

#include "base/text.h"
#include "base/text_checks.h"
#include "dispatch/field_rules.h"

namespace orvane {
namespace {

struct Checked {
  const char* column;
  FieldKind kind;
};
struct TableCheck {
  const char* table;
  bool has_work_twin;
  std::vector<const char*> key;
  std::vector<Checked> columns;
};

// The columns the pages get back in lists, by the kind of field that
// writes them. Ids are checked for what lists cannot carry only: the
// shape of a new id is not asked of existing ones. Passwords are left out:
// they are never shown.
const std::vector<TableCheck>& Checks() {
  using K = FieldKind;
  static const std::vector<TableCheck> checks = {
      {"T_SECTION",
       true,
       {"SEC_CD"},
       {{"SEC_CD", K::kCode},
        {"SEC_NM", K::kName},
        {"DSP_NM", K::kName},
        {"BUSHO_CD", K::kCode},
        {"IMAIL_LIST", K::kCode}}},
      {"T_USER",
       true,
       {"USER_ID"},
       {{"USER_ID", K::kId},
        {"NAME_KJ", K::kName},
        {"NAME_KN", K::kReading},
        {"MAIL", K::kMail},
        {"IMAIL_FLG", K::kFlag},
        {"MAIL_USE_FLG", K::kFlag},
        {"MAIL_NM", K::kName},
        {"EXT_TEL", K::kPhone},
        {"POST_NM", K::kName},
        {"DSP_NM", K::kName}}},
      {"T_SECMEMBER",
       true,
       {"SEC_CD", "USER_ID"},
       {{"SEC_KBN", K::kFlag}, {"POST_CD", K::kCode}, {"ST_YMD", K::kDate}, {"ED_YMD", K::kEndDate}}},
      {"T_POST_MST", false, {"POST_CD"}, {{"POST_CD", K::kCode}, {"POST_NAME", K::kName}}},
  };
  return checks;
}

Status CheckTable(data::Connection& conn, const TableCheck& check, const std::string& table,
                  std::vector<StoredValueFinding>& findings) {
  std::vector<std::string> names;
  data::Sql sql;
  sql << "select ";
  for (const char* k : check.key) names.push_back(k);
  for (const Checked& c : check.columns)
    if (std::find(names.begin(), names.end(), c.column) == names.end()) names.push_back(c.column);
  for (size_t i = 0; i < names.size(); ++i)
    sql << (i ? data::SqlText(", ") : data::SqlText("")) << data::Identifier(names[i]);
  sql << " from " << data::Table(table) << " order by ";
  for (size_t i = 0; i < check.key.size(); ++i)
    sql << (i ? data::SqlText(", ") : data::SqlText("")) << data::Identifier(check.key[i]);
  auto on_row = [&](const std::vector<std::string>& values) {
    auto value_of = [&](const char* column) {
      for (size_t i = 0; i < names.size(); ++i)
        if (names[i] == column) return values[i];
      return std::string();
    };
    std::string key, start;
    for (const char* k : check.key) {
      if (!key.empty()) key += ' ';
      key.append(k).append("=").append(value_of(k));
    }
    for (const Checked& c : check.columns)
      if (c.kind == FieldKind::kDate) start = value_of(c.column);
    for (const Checked& c : check.columns) {
      const std::string value = value_of(c.column);
      FieldRule rule{c.column, c.kind, true, false, {}, {}};
      std::string reason = CheckValue(rule, value, start);
      if (!reason.empty()) findings.push_back({table, ShowValueSafely(key), c.column, ShowValueSafely(value), reason});
    }
    return true;
  };
  return data::SelectRows(conn, sql, names, on_row);
}

}  // namespace

std::string ShowValueSafely(const std::string& value) {
  constexpr size_t kShown = 60;
  std::string out = "\"";
  size_t shown = 0, i = 0;
  while (i < value.size() && shown < kShown) {
    unsigned char c = static_cast<unsigned char>(value[i]);
    size_t len = c < 0x80 ? 1 : c >= 0xF0 ? 4 : c >= 0xE0 ? 3 : 2;
    if (c >= 0x80 && (i + len > value.size() || !text::IsValidUtf8(std::string_view(value).substr(i, len)))) {
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\x%02X", c);
      out += buf;
      ++i;
    } else if (c < 0x20 || c == 0x7F) {
      const char* named = c == '\t' ? "\\t" : c == '\r' ? "\\r" : c == '\n' ? "\\n" : nullptr;
      char buf[8];
      std::snprintf(buf, sizeof buf, "\\x%02X", c);
      out += named ? named : buf;
      ++i;
    } else if (c == '"' || c == '\\') {
      out += '\\';
      out += static_cast<char>(c);
      ++i;
    } else {
      out.append(value, i, len);
      i += len;
    }
    ++shown;
  }
  out += "\"";
  if (i < value.size()) out += "... (" + std::to_string(text::CodePointLength(value)) + " characters)";
  return out;
}

Status CheckStoredValues(data::Connection& conn, std::vector<StoredValueFinding>& findings) {
  for (const TableCheck& check : Checks()) {
    if (Status s = CheckTable(conn, check, check.table, findings); !s.ok()) return s;
    if (check.has_work_twin) {
      if (Status s = CheckTable(conn, check, std::string(check.table) + "_WORK", findings); !s.ok()) return s;
    }
  }
  return Status::Ok();
}

}  // namespace orvane
