#include "known_findings.h"

#include "base/text.h"
#include "data/db.h"

namespace orvane::bench {
namespace {

using data::Quoted;
using data::Table;

// The parent of section `code` in the request's section table; false when
// there is no such section.
bool ParentOf(data::Connection& conn, const std::string& table, const std::string& code, std::string& parent) {
  data::Sql sql;
  sql << "select JOI_SEC from " << Table(table) << " where SEC_CD = " << Quoted(code);
  bool found = false;
  return data::SelectFirstValue(conn, sql, "JOI_SEC", parent, &found).ok() && found;
}

bool UserExists(data::Connection& conn, const std::string& table, const std::string& id) {
  data::Sql sql;
  sql << "select USER_ID from " << Table(table) << " where USER_ID = " << Quoted(id);
  std::string value;
  bool found = false;
  return data::SelectFirstValue(conn, sql, "USER_ID", value, &found).ok() && found;
}

}  // namespace

int KnownFinding(const std::string& dsn, const NamedValues& fields) {
  const std::string code = fields.Get("ReqNo");
  if (code != "207" && code != "201" && code != "210") return 0;
  const std::string suffix = text::EqualsIgnoreCase(fields.Get("DBFlg"), "1") ? "_WORK" : "";
  const std::string sections = "T_SECTION" + suffix, users = "T_USER" + suffix;
  data::Connection conn;
  if (!data::Com_funDbOpen(dsn, "", "", conn).ok()) return 0;
  std::string parent, other;
  if (code == "207" &&
      (!ParentOf(conn, sections, fields.Get("Group_cd"), parent) || !UserExists(conn, users, fields.Get("User_cd"))))
    return 1;
  if (code == "201" && !ParentOf(conn, sections, fields.Get("Group_cd"), parent)) return 2;
  if (code == "210") {
    const std::string joi = fields.Get("Group_cd3");
    bool siblings = ParentOf(conn, sections, fields.Get("Group_cd1"), parent) && parent == joi &&
                    ParentOf(conn, sections, fields.Get("Group_cd2"), other) && other == joi;
    // An unknown group is refused; only known groups of two families are not.
    bool both_known = ParentOf(conn, sections, fields.Get("Group_cd1"), parent) &&
                      ParentOf(conn, sections, fields.Get("Group_cd2"), other);
    if (both_known && !siblings) return 3;
  }
  return 0;
}

}  // namespace orvane::bench
