#include "transfer/organisation.h"

#include <algorithm>

#include "base/text.h"
#include "data/schema.h"

namespace orvane::transfer {
namespace {

using K = FieldKind;

constexpr ColumnSpec kSectionColumns[] = {
    {"code", "SEC_CD", K::kCode, true},
    {"parent", "JOI_SEC", K::kCode},
    {"name", "SEC_NM", K::kName},
    {"display_name", "DSP_NM", K::kName},
    {"mailing_list", "IMAIL_LIST", K::kCode},
    {"department_code", "BUSHO_CD", K::kCode},
    {"order", "SEC_SEQ", K::kCode},
};
constexpr ColumnSpec kUserColumns[] = {
    {"id", "USER_ID", K::kId, true},
    {"name", "NAME_KJ", K::kName},
    {"reading", "NAME_KN", K::kReading},
    {"mail_name", "MAIL_NM", K::kName},
    {"mail", "MAIL", K::kMail},
    {"alias_in_use", "IMAIL_FLG", K::kFlag},
    {"mail_use", "MAIL_USE_FLG", K::kFlag},
    {"phone", "EXT_TEL", K::kPhone},
    {"post", "POST_NM", K::kName},
    {"display_name", "DSP_NM", K::kName},
    {"password", "", K::kPassword, false, false},
};
constexpr ColumnSpec kMembershipColumns[] = {
    {"user", "USER_ID", K::kId, true}, {"section", "SEC_CD", K::kCode, true}, {"kind", "SEC_KBN", K::kFlag},
    {"post", "POST_CD", K::kCode},     {"start", "ST_YMD", K::kDate},         {"end", "ED_YMD", K::kEndDate},
    {"order", "USER_SEQ", K::kCode},
};
constexpr ColumnSpec kRightsColumns[] = {
    {"user", "USER_ID", K::kId, true},
    {"rights", "", K::kFreeText},
};

const FileSpec kSpecs[] = {
    {FileKind::kSections, "sections.csv", kSectionColumns},
    {FileKind::kUsers, "users.csv", kUserColumns},
    {FileKind::kMemberships, "memberships.csv", kMembershipColumns},
    {FileKind::kMenuRights, "menu_rights.csv", kRightsColumns},
};

constexpr char kKeySeparator = '\x1f';  // a control character: refused in every key

// Reads `columns` of `table` into rows of the layout's exported columns.
Status ReadTable(data::Connection& conn, std::string_view table, const std::vector<std::string>& columns,
                 std::vector<Row>& rows) {
  data::Sql sql;
  sql << "select ";
  for (size_t i = 0; i < columns.size(); ++i) {
    if (i > 0) sql << " ,";
    sql << data::Identifier(columns[i]);
  }
  sql << " from " << data::Table(table);
  return data::SelectRows(conn, sql, columns, [&rows](const std::vector<std::string>& v) {
    rows.push_back(v);
    return true;
  });
}

std::vector<std::string> StoredColumns(const FileSpec& layout) {
  std::vector<std::string> out;
  for (const ColumnSpec& c : layout.columns)
    if (c.exported && !c.db_column.empty()) out.emplace_back(c.db_column);
  return out;
}

}  // namespace

std::vector<std::string_view> FileSpec::ExportedNames() const {
  std::vector<std::string_view> out;
  for (const ColumnSpec& c : columns)
    if (c.exported) out.push_back(c.name);
  return out;
}

int FileSpec::ExportedIndex(std::string_view name) const {
  int i = 0;
  for (const ColumnSpec& c : columns) {
    if (!c.exported) continue;
    if (c.name == name) return i;
    ++i;
  }
  return -1;
}

std::span<const FileSpec> FileSpecs() { return kSpecs; }

const FileSpec& SpecOf(FileKind kind) { return kSpecs[static_cast<int>(kind)]; }

const FileSpec* FindFileSpec(std::string_view file_name) {
  for (const FileSpec& s : kSpecs)
    if (s.file_name == file_name) return &s;
  return nullptr;
}

std::string KeyOf(const FileSpec& layout, const Row& row) {
  std::string key;
  int i = 0;
  for (const ColumnSpec& c : layout.columns) {
    if (!c.exported) continue;
    if (c.key) {
      if (!key.empty()) key.push_back(kKeySeparator);
      key += row[i];
    }
    ++i;
  }
  return key;
}

std::string RightsText(const std::vector<std::string>& menu_values) {
  std::vector<std::string> codes = text::Split(data::kMenuCodeList, ",");
  std::string out;
  for (size_t i = 0; i < codes.size() && i < menu_values.size(); ++i)
    if (text::Trim(menu_values[i]) == codes[i]) out += "/" + codes[i];
  return out.empty() ? out : out + "/";
}

Status ReadOrganisation(data::Connection& conn, Organisation& out) {
  out = Organisation{};
  std::vector<std::string> section_columns = StoredColumns(SpecOf(FileKind::kSections));
  section_columns.push_back("SEC_TREE");  // the order: parents before children
  std::vector<Row> sections;
  if (Status s = ReadTable(conn, "T_SECTION", section_columns, sections); !s.ok()) return s;
  std::sort(sections.begin(), sections.end(), [](const Row& a, const Row& b) { return a.back() < b.back(); });
  for (Row& r : sections) {
    r.pop_back();
    out.Of(FileKind::kSections).push_back(std::move(r));
  }
  // The rest by key, compared as bytes: the same order on every database.
  auto by_key = [](FileKind kind) {
    return [&layout = SpecOf(kind)](const Row& a, const Row& b) { return KeyOf(layout, a) < KeyOf(layout, b); };
  };
  for (FileKind kind : {FileKind::kUsers, FileKind::kMemberships}) {
    std::string_view table = kind == FileKind::kUsers ? "T_USER" : "T_SECMEMBER";
    if (Status s = ReadTable(conn, table, StoredColumns(SpecOf(kind)), out.Of(kind)); !s.ok()) return s;
    std::sort(out.Of(kind).begin(), out.Of(kind).end(), by_key(kind));
  }
  std::vector<std::string> menu_columns = {"USER_ID"};
  for (const std::string& code : text::Split(data::kMenuCodeList, ",")) menu_columns.push_back("MENU" + code);
  std::vector<Row> menus;
  if (Status s = ReadTable(conn, "MENU_USER", menu_columns, menus); !s.ok()) return s;
  for (Row& m : menus) {
    std::string user = m[0];
    m.erase(m.begin());
    out.Of(FileKind::kMenuRights).push_back({user, RightsText(m)});
  }
  std::sort(out.Of(FileKind::kMenuRights).begin(), out.Of(FileKind::kMenuRights).end(), by_key(FileKind::kMenuRights));
  return Status::Ok();
}

}  // namespace orvane::transfer
