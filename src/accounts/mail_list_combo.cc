#include "accounts/mail_list_combo.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "accounts/mail_lists.h"
#include "data/db.h"
#include "dispatch/text.h"

namespace orvane::accounts {
namespace {

// "#..." names are comments of the list folder; anything after a blank is
// not part of the name.
std::string CleanListName(const std::string& name) {
  if (!name.empty() && name.front() == '#') return {};
  return name.substr(0, name.find(' '));
}

// The lists given to sections, scanned in SEC_CD order as the original
// table returned them: every IMAIL_LIST followed by ",", split again, and
// the scan ends at the first empty item (a section holding an empty list).
// Returns the answer code of a failure, or "".
std::string ListsInUse(RequestContext& ctx, data::Connection& conn, std::vector<std::string>& used) {
  data::Sql sql;
  sql << "select SEC_CD ,IMAIL_LIST from " << data::Table(ctx.SEC_MST) << " where IMAIL_LIST IS NOT NULL";
  std::string error;
  data::Recordset rs;
  if (data::Com_funSelect(conn, sql, rs, error) != 0) return "ERROR:DBSELECT";
  std::vector<std::pair<std::string, std::string>> rows;
  for (std::vector<std::string> row;;) {
    bool eof = false;
    if (data::Com_funfetchData(rs, {"SEC_CD", "IMAIL_LIST"}, row, eof, error) != 0) return "ERROR:DBSELECT";
    if (eof) break;
    rows.emplace_back(row[0], row[1]);
  }
  if (data::Com_funRecordsetClose(rs, error) != 0) return "ERROR:RSCLOSE";
  std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::string joined;
  for (const auto& r : rows) joined += r.second + ",";
  for (std::string& item : text::Split(joined, ",")) {
    if (item.empty()) break;
    used.push_back(std::move(item));
  }
  return {};
}

}  // namespace

void Create_IMailList_Combo(RequestContext& ctx, std::string_view M_List) {
  std::string dsn, message, error;
  bool found = false;
  ctx.config().ComIniFileLoad("LOCAL_DB_DSN", dsn, message, found);
  if (!found) {
    ctx.Write("ERROR:READINFOFILE_SV_FOLDER");
    return;
  }
  data::Connection conn;
  if (data::Com_funDbOpen(dsn, "", "", conn, error) != 0) {
    ctx.Write("ERROR:DBOPEN");
    return;
  }
  std::string lists;
  funMailListGet(ctx, lists);
  std::vector<std::string> used;
  if (std::string code = ListsInUse(ctx, conn, used); !code.empty()) {
    ctx.Write(code);
    return;
  }
  if (data::Com_funDbClose(conn, error) != 0) {
    ctx.Write("ERROR:DBCLOSE");
    return;
  }
  std::string own = text::Trim(M_List);
  std::vector<std::string> kept;
  for (const std::string& raw : text::Split(lists, text::kCrLf)) {
    std::string name = CleanListName(raw);
    if (name.empty()) continue;
    bool taken =
        std::any_of(used.begin(), used.end(), [&](const std::string& u) { return text::EqualsIgnoreCase(u, name); });
    if (!taken || (!own.empty() && text::EqualsIgnoreCase(name, own))) kept.push_back(name);
  }
  ctx.Write(text::Join(kept, ","));
}

}  // namespace orvane::accounts
