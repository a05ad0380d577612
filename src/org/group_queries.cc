#include "org/group_queries.h"

#include <climits>
#include <optional>

#include "base/text.h"
#include "base/whole_number.h"
#include "data/prepared_select.h"
#include "data/schema.h"
#include "dispatch/query_frame.h"

namespace orvane::org {
namespace {

using data::Len;
using data::Quoted;
using data::Table;

const data::Columns kTriple = {"SEC_CD", "JOI_SEC", "SEC_NM"};
const std::vector<std::string> kTripleNames = kTriple.FetchNames();
const data::Columns kProperty = {"SEC_CD",  "SEC_NM",     "DSP_NM",  "BUSHO_CD",
                                 "SEC_SEQ", "IMAIL_LIST", "UPD_YMD", "UPD_HMS"};

// Deleted sections are left out only on the work tables.
void DeletedFilter(const RequestContext& ctx, data::Sql& sql) {
  if (ctx.WorkTables()) sql << " and UPD_KBN <> '1'";
}

// The live group list changes only with the tree version: every change of
// the section table raises it inside its own transaction. A store that
// follows the version (it holds the drawn tree, which rests on the same
// rule; a server draws it at start) keeps the list it read and answers it
// again while the database's version is the one it was read at: one keyed
// select instead of reading every section. The version is read before the
// list, so a kept list is never older than its version. False (read the
// table) on the work tables, without a drawn tree, or when the version
// cannot be read or its row is missing (nothing would raise it).
bool ListVersion(RequestContext& ctx, data::Connection& conn, std::string& key, long long& version) {
  if (ctx.WorkTables() || ctx.app().SecHierarchicalVersion() < 0) return false;
  std::string dsn;
  if (!ctx.config().ComIniFileLoad("LOCAL_DB_DSN", dsn).ok()) return false;
  data::Sql sql;
  sql << "select VERSION from " << Table(data::kTreeVersionTable) << " where VERSION_ID = '1'";
  std::string text;
  bool found = false;
  if (!data::SelectFirstValuePrepared(conn, "ORVANE_TREE_VERSION_OF_LIST", sql, "VERSION", text, &found).ok() ||
      !found)
    return false;
  std::optional<long long> read = ParseWholeNumber(text, 0, LLONG_MAX, {.minus_sign = false});
  if (!read) return false;
  key = "101 " + dsn;
  version = *read;
  return true;
}

}  // namespace

data::Sql TopGroupSql(const RequestContext& ctx) {
  data::Sql sql;
  sql << "SELECT " << kTriple << " from " << Table(ctx.SEC_MST) << " where JOI_SEC = '9999'";
  DeletedFilter(ctx, sql);
  sql << " order by JOI_SEC,SEC_SEQ";
  return sql;
}

data::Sql OtherGroupsSql(const RequestContext& ctx) {
  data::Sql sql;
  sql << "SELECT " << kTriple << " from " << Table(ctx.SEC_MST) << " where JOI_SEC <> '9999'";
  DeletedFilter(ctx, sql);
  // Shorter paths first: every parent comes before its children.
  sql << " order by " << Len("SEC_TREE") << ",JOI_SEC,SEC_SEQ";
  return sql;
}

data::Sql GroupPropertySql(const RequestContext& ctx, const std::string& sec_cd) {
  data::Sql sql;
  sql << "SELECT " << kProperty << " from " << Table(ctx.SEC_MST) << " where SEC_CD = " << Quoted(sec_cd);
  return sql;
}

data::Sql SpecificGroupSql(const RequestContext& ctx, const std::string& joi_sec, const std::string& sort_key,
                           const std::string& desc) {
  data::Sql sql;
  sql << "SELECT " << kTriple << " from " << Table(ctx.SEC_MST) << " where JOI_SEC = " << Quoted(joi_sec);
  DeletedFilter(ctx, sql);
  sql << " order by JOI_SEC,SEC_SEQ";
  // The name order goes behind the fixed order with a blank and no comma.
  // Sent as built, it is refused by the database ("ERROR:DBSELECT"): the
  // pages have always received that answer for a name sort, so it stays.
  if (text::EqualsIgnoreCase(sort_key, "name")) {
    sql << " SEC_NM";
    if (desc == "1") sql << " DESC";
  }
  return sql;
}

void GetAllGroupList(RequestContext& ctx) {
  QueryFrame frame(ctx);
  if (!frame.Open()) return;
  std::string key;
  long long version = -1;
  const bool follows = ListVersion(ctx, frame.connection(), key, version);
  if (std::shared_ptr<const std::string> kept = follows ? ctx.app().TreeAnswer(key, version) : nullptr) {
    frame.Close();
    ctx.Write(*kept);
    return;
  }
  std::string list;
  {
    // One fetch without an end test: the tree has a single top section, and
    // a table without one starts the list with three empty values.
    data::Recordset rs;
    if (!frame.Select(TopGroupSql(ctx), rs)) return;
    std::vector<std::string> values;
    bool eof = false;
    if (!frame.Fetch(rs, kTripleNames, values, eof)) return;
    list = text::Join(values, ",");
    if (!frame.CloseRecordset(rs)) return;
  }
  data::Recordset rs;
  if (!frame.Select(OtherGroupsSql(ctx), rs)) return;
  auto add = [&list](const std::vector<std::string>& values) {
    AppendListRow(list, values);
    return true;
  };
  if (!frame.FetchRows(rs, kTripleNames, add)) return;
  if (!frame.CloseRecordset(rs)) return;
  if (follows) ctx.app().KeepTreeAnswer(key, version, list);
  frame.Close();
  ctx.Write(list);
}

void GetGroupProperty(RequestContext& ctx, const std::string& sec_cd) {
  std::string answer;
  auto keep = [&answer](const std::vector<std::string>& values) {
    answer = text::Join(values, ",");
    return true;
  };
  if (RunQuery(ctx, GroupPropertySql(ctx, sec_cd), kProperty.FetchNames(), Rows::kFirstOnly, keep)) ctx.Write(answer);
}

void GetSpecificGroup(RequestContext& ctx, const std::string& joi_sec, const std::string& sort_key,
                      const std::string& desc) {
  WriteListQuery(ctx, SpecificGroupSql(ctx, joi_sec, sort_key, desc), kTripleNames);
}

}  // namespace orvane::org
