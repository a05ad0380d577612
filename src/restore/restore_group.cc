#include <vector>

#include "accounts/mail_list_members.h"
#include "base/text.h"
#include "org/group_paths.h"
#include "org/tree_change.h"
#include "restore/caller_frame.h"
#include "restore/entry_images.h"
#include "restore/restore_deleted.h"

namespace orvane::restore {
namespace {

using data::Quoted;
using data::Table;

constexpr std::string_view kNoConfig = "ERROR:READINFOFILE_SV_FOLDER";

std::string Value(const RowValues& row, const std::string& column) {
  auto it = row.find(column);
  return it == row.end() || !it->second ? std::string() : *it->second;
}

// The first row's value of `sql`'s `column` ("" when there is none).
Status First(data::Connection& conn, const data::Sql& sql, const std::string& column, std::string& value) {
  value.clear();
  return data::SelectFirstValue(conn, sql, column, value);
}

// The group's members of today join its list again, as they join a
// group's new list; the restore stands whatever the list says.
void RejoinList(RequestContext& ctx, data::Connection& conn, const std::string& sec_cd, const std::string& list,
                const std::string& today) {
  std::string server;
  if (text::Trim(list).empty() || !ctx.config().ComIniFileLoad("ML_SERVER", server).ok()) return;
  data::Sql sql;
  sql << "select USER_ID from " << Table("T_SECMEMBER") << " where SEC_CD = " << Quoted(sec_cd)
      << " and ST_YMD <= " << Quoted(today) << " and ED_YMD >= " << Quoted(today) << " order by USER_SEQ";
  std::vector<std::string> addresses;
  auto add = [&](const std::vector<std::string>& v) {
    addresses.push_back(text::Trim(v[0]) + "@" + server);
    return true;
  };
  if (!data::SelectRows(conn, sql, {"USER_ID"}, add).ok() || addresses.empty()) return;
  DiscardedWrites discarded(ctx);
  accounts::funAddMailListUser(ctx, text::Trim(list), text::Join(addresses, ","), "0").IgnoreError();
}

}  // namespace

Outcome RestoreGroup(RequestContext& ctx, const std::string& sec_cd) {
  CallerFrame frame(ctx, org::kTreeChangeRules, "restore-group", {{"kind", "group"}, {"key", sec_cd}});
  std::vector<std::string> keys;
  if (!frame.Start({{"LOCAL_DB_DSN", kNoConfig}}, keys) || !frame.Open()) return frame.Result();
  data::Connection& conn = frame.conn();

  long deletion = 0;
  const std::string since = RetentionStart(ctx.config(), ctx.clock());
  if (!frame.Step("ERROR:DBSELECT", FindDeletion(conn, "T_SECTION", "203", sec_cd, since, deletion)))
    return frame.Result();
  if (deletion == 0)
    return frame.Refuse("ERROR:RESTORENOTFOUND\r\nno deleted group " + sec_cd + " within the retention period");
  std::vector<Image> images;
  if (!frame.Step("ERROR:DBSELECT", ReadImages(conn, deletion, images))) return frame.Result();
  const Image* group = nullptr;
  for (const Image& image : images)
    if (image.action == "delete" && image.table == "T_SECTION" && image.key == sec_cd) group = &image;
  if (!group) return frame.Refuse("ERROR:RESTORENOTFOUND\r\nthe deletion of " + sec_cd + " kept no row of the group");

  // Memberships read that their users exist: the user table is held first,
  // as a membership's add holds it.
  ctx.history.undoes = deletion;
  if (!frame.Begin({"T_USER", "T_SECTION"})) return frame.Result();
  RowValues row = group->before;
  const std::string name = Value(row, "SEC_NM"), parent = Value(row, "JOI_SEC"), busho = Value(row, "BUSHO_CD");
  std::string holder;
  data::Sql taken;
  taken << "select SEC_NM from " << Table("T_SECTION") << " where SEC_CD = " << Quoted(sec_cd);
  bool found = false;
  if (!frame.Step("ERROR:DBSELECT", data::SelectFirstValue(conn, taken, "SEC_NM", holder, &found)))
    return frame.Result();
  if (found)
    return frame.Refuse("ERROR:RESTORETAKEN\r\nthe group code " + sec_cd + " has been taken since by " + holder);
  org::UpperTree upper;
  if (!frame.Step("ERROR:DBSELECT", org::funGetUpperTree1(ctx, conn, parent, upper))) return frame.Result();
  const std::string &parent_tree = upper.SEC_TREE, &parent_tree_nm = upper.TREE_NM;
  if (!upper.exists) return frame.Refuse("ERROR:RESTOREPARENTGONE\r\nthe parent group " + parent + " is gone");
  if (!text::Trim(busho).empty()) {
    data::Sql sql;
    sql << "select SEC_CD from " << Table("T_SECTION") << " where BUSHO_CD = " << Quoted(busho);
    if (!frame.Step("ERROR:DBSELECT", First(conn, sql, "SEC_CD", holder))) return frame.Result();
    if (!holder.empty())
      return frame.Refuse("ERROR:RESTORETAKEN\r\nthe department code " + busho + " has been taken since by group " +
                          holder);
  }

  // Back under its parent as the parent's path reads today, at its old
  // place unless a sibling has taken it since.
  row["SEC_TREE"] = parent_tree + "/" + sec_cd;
  row["TREE_NM"] = org::ChildTreeNm(parent, parent_tree_nm, org::PathName(name));
  data::Sql sibling;
  sibling << "select SEC_CD from " << Table("T_SECTION") << " where JOI_SEC = " << Quoted(parent)
          << " and SEC_SEQ = " << Quoted(Value(row, "SEC_SEQ"));
  if (!frame.Step("ERROR:DBSELECT", First(conn, sibling, "SEC_CD", holder))) return frame.Result();
  if (!holder.empty()) {
    std::string seq;
    if (!frame.Step("ERROR:DBSELECT", org::Group_funNextSortidx(ctx, conn, parent, seq))) return frame.Result();
    row["SEC_SEQ"] = seq;
  }
  if (!frame.Step("ERROR:RESTOREINSERT", InsertRow(conn, "T_SECTION", row))) return frame.Result();
  for (const Image& image : images) {
    if (image.action != "delete" || &image == group || image.table.ends_with("_WORK")) continue;
    if (image.table == "T_SECMEMBER") {
      // A member deleted since stays out of the group.
      data::Sql user;
      user << "select USER_ID from " << Table("T_USER")
           << " where USER_ID = " << Quoted(Value(image.before, "USER_ID"));
      if (!frame.Step("ERROR:DBSELECT", First(conn, user, "USER_ID", holder))) return frame.Result();
      if (holder.empty()) continue;
    }
    if (!frame.Step("ERROR:RESTOREINSERT", InsertRow(conn, image.table, image.before))) return frame.Result();
  }
  if (!org::CommitTreeChange(ctx, frame)) return frame.Result();
  RejoinList(ctx, conn, sec_cd, Value(row, "IMAIL_LIST"), frame.stamp().ymd);
  org::FinishTreeChange(ctx, frame);
  return frame.Result();
}

}  // namespace orvane::restore
