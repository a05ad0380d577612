#include "accounts/mail_list_combo.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "accounts/mail_lists.h"
#include "base/text.h"
#include "dispatch/query_frame.h"

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
// Database failures answer "ERROR:DBSELECT" (fetch included) or
// "ERROR:RSCLOSE"; false then.
bool ListsInUse(RequestContext& ctx, QueryFrame& frame, std::vector<std::string>& used) {
  data::Sql sql;
  sql << "select SEC_CD ,IMAIL_LIST from " << data::Table(ctx.SEC_MST) << " where IMAIL_LIST IS NOT NULL";
  data::Recordset rs;
  std::vector<std::pair<std::string, std::string>> rows;
  auto keep = [&rows](const std::vector<std::string>& v) {
    rows.emplace_back(v[0], v[1]);
    return true;
  };
  if (!frame.Select(sql, rs) || !frame.FetchRows(rs, {"SEC_CD", "IMAIL_LIST"}, keep, "ERROR:DBSELECT") ||
      !frame.CloseRecordset(rs))
    return false;
  std::stable_sort(rows.begin(), rows.end(), [](const auto& a, const auto& b) { return a.first < b.first; });
  std::string joined;
  for (const auto& r : rows) joined += r.second + ",";
  for (std::string& item : text::Split(joined, ",")) {
    if (item.empty()) break;
    used.push_back(std::move(item));
  }
  return true;
}

}  // namespace

void Create_IMailList_Combo(RequestContext& ctx, std::string_view M_List) {
  QueryFrame frame(ctx);
  if (!frame.Open()) return;
  std::string lists;
  // A missing key has written its own answer code; the scan below still runs
  // as it always has, and with no lists nothing is offered behind that code.
  funMailListGet(ctx, lists).IgnoreError();
  std::vector<std::string> used;
  if (!ListsInUse(ctx, frame, used) || !frame.Close()) return;
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
