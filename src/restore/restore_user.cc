#include <vector>

#include "accounts/mail_account.h"
#include "accounts/mail_alias.h"
#include "accounts/mail_config.h"
#include "accounts/mail_list_members.h"
#include "accounts/user_registration.h"
#include "accounts/user_storage.h"
#include "base/text.h"
#include "restore/caller_frame.h"
#include "restore/entry_images.h"
#include "restore/restore_deleted.h"

namespace orvane::restore {
namespace {

using data::Quoted;
using data::Table;

constexpr std::string_view kNoConfig = "ERROR:READINFOFILE_SV_FOLDER";
// Each refusal's code stands first and its sentence after CR LF.
constexpr WriteRules kRestoreRules = {.close_failure = WriteRules::CloseFailure::kBefore,
                                      .frame_trail = false,
                                      .step_trail = true,
                                      .rollback_failure = {}};

std::string Value(const RowValues& row, const std::string& column) {
  auto it = row.find(column);
  return it == row.end() || !it->second ? std::string() : *it->second;
}

// The users other than `user_id` that hold `mail` as their address, or as
// their id when it is an alias in use.
Status MailHolder(data::Connection& conn, const std::string& user_id, const std::string& mail, bool alias,
                  std::string& holder) {
  data::Sql sql;
  sql << "select USER_ID from " << Table("T_USER") << " where USER_ID <> " << Quoted(user_id)
      << " and (MAIL = " << Quoted(mail);
  if (alias) sql << " or USER_ID = " << Quoted(mail);
  sql << ")";
  return data::SelectFirstValue(conn, sql, "USER_ID", holder);
}

// The restored user joins the list of each section it is a member of
// today, as a group's members join its new list; the restore stands
// whatever the lists say.
void RejoinLists(RequestContext& ctx, data::Connection& conn, const std::string& user_id,
                 const std::vector<std::string>& sections, const std::string& today) {
  std::string server;
  if (!ctx.config().ComIniFileLoad("ML_SERVER", server).ok() || server.empty()) return;
  for (const std::string& sec_cd : sections) {
    data::Sql sql;
    sql << "select S.IMAIL_LIST from " << Table("T_SECTION") << " S join " << Table("T_SECMEMBER")
        << " M on M.SEC_CD = S.SEC_CD where S.SEC_CD = " << Quoted(sec_cd) << " and M.USER_ID = " << Quoted(user_id)
        << " and M.ST_YMD <= " << Quoted(today) << " and M.ED_YMD >= " << Quoted(today);
    std::string list;
    if (!data::SelectFirstValue(conn, sql, "IMAIL_LIST", list).ok() || text::Trim(list).empty()) continue;
    DiscardedWrites discarded(ctx);
    accounts::funAddMailListUser(ctx, text::Trim(list), text::Trim(user_id) + "@" + server, "0").IgnoreError();
  }
}

}  // namespace

Outcome RestoreUser(RequestContext& ctx, const std::string& user_id) {
  CallerFrame frame(ctx, kRestoreRules, "restore-user", {{"kind", "user"}, {"key", user_id}});
  std::vector<std::string> keys, mail_keys;
  if (!frame.Start({{"LOCAL_DB_DSN", kNoConfig}, {"ML_MODE", kNoConfig}}, keys)) return frame.Result();
  const bool mail_server = keys[1] == "2";
  if (mail_server && !accounts::ReadMailServerKeys(ctx, mail_keys)) return frame.Result();
  if (!frame.Open()) return frame.Result();
  data::Connection& conn = frame.conn();

  // The deletion is history: it cannot change, so it is found before the
  // transaction that names it as the entry it reverses.
  long deletion = 0;
  const std::string since = RetentionStart(ctx.config(), ctx.clock());
  if (!frame.Step("ERROR:DBSELECT", FindDeletion(conn, "T_USER", "206", user_id, since, deletion)))
    return frame.Result();
  if (deletion == 0) {
    return frame.Refuse("ERROR:RESTORENOTFOUND\r\nno deleted user " + user_id + " within the retention period");
  }
  std::vector<Image> images;
  if (!frame.Step("ERROR:DBSELECT", ReadImages(conn, deletion, images))) return frame.Result();
  const Image* user = nullptr;
  std::vector<const Image*> deleted;
  std::vector<std::string> sections;
  for (const Image& image : images) {
    if (image.action != "delete" || image.table.ends_with("_WORK")) continue;
    deleted.push_back(&image);
    if (image.table == "T_USER" && image.key == user_id) user = &image;
    if (image.table == "T_SECMEMBER") sections.push_back(Value(image.before, "SEC_CD"));
  }
  if (!user) {
    return frame.Refuse("ERROR:RESTORENOTFOUND\r\nthe deletion of " + user_id + " kept no row of the user");
  }

  // What blocks is read under the locks a user's add and a membership's
  // add take, in their order.
  ctx.history.undoes = deletion;
  if (!frame.Begin({"T_USER", "T_SECTION"})) return frame.Result();
  std::string holder;
  data::Sql taken;
  taken << "select USER_ID from " << Table("T_USER") << " where USER_ID = " << Quoted(user_id);
  if (!frame.Step("ERROR:DBSELECT", data::SelectFirstValue(conn, taken, "USER_ID", holder))) return frame.Result();
  if (!holder.empty()) {
    return frame.Refuse("ERROR:RESTORETAKEN\r\nthe user id " + user_id + " has been taken since");
  }
  const std::string mail = Value(user->before, "MAIL"), mail_flag = Value(user->before, "IMAIL_FLG");
  if (!text::Trim(mail).empty()) {
    if (!frame.Step("ERROR:DBSELECT", MailHolder(conn, user_id, mail, mail_flag == "1", holder))) return frame.Result();
    if (!holder.empty()) {
      return frame.Refuse("ERROR:RESTORETAKEN\r\nthe mail address " + mail + " has been taken since by user " + holder);
    }
  }
  std::vector<std::string> gone;
  for (const std::string& sec_cd : sections) {
    data::Sql sql;
    sql << "select SEC_CD from " << Table("T_SECTION") << " where SEC_CD = " << Quoted(sec_cd);
    bool found = false;
    std::string ignored;
    if (!frame.Step("ERROR:DBSELECT", data::SelectFirstValue(conn, sql, "SEC_CD", ignored, &found)))
      return frame.Result();
    if (!found) gone.push_back(sec_cd);
  }
  if (!gone.empty()) {
    return frame.Refuse(std::string("ERROR:RESTOREGROUPGONE\r\n") + (gone.size() == 1 ? "the group " : "the groups ") +
                        text::Join(gone, ", ") + " of the user " + (gone.size() == 1 ? "is" : "are") + " gone");
  }

  for (const Image* image : deleted)
    if (!frame.Step("ERROR:RESTOREINSERT", InsertRow(conn, image->table, image->before))) return frame.Result();

  // The mail server learns of the user as a registration tells it, before
  // the commit: a refusal there leaves the user deleted.
  if (mail_server) {
    const std::string folder = mail_keys[0].ends_with('\\') ? mail_keys[0] : mail_keys[0] + "\\";
    accounts::UserForm u;
    u.user_cd = user_id;
    u.user_kj = Value(user->before, "NAME_KJ");
    u.user_kn = Value(user->before, "NAME_KN");
    u.mail_ad = mail;
    u.mail_fl = mail_flag;
    u.mail_ufl = Value(user->before, "MAIL_USE_FLG");
    u.ext_tel = Value(user->before, "EXT_TEL");
    u.post_nm = Value(user->before, "POST_NM");
    u.disp_nm = Value(user->before, "DSP_NM");
    u.mail_nm = Value(user->before, "MAIL_NM");
    const std::string mode = accounts::AccountMode("3", "", u.mail_ufl);
    std::string output;
    if (!mode.empty() && !frame.Step("ERROR:ADDMAILUSER", accounts::funAdmMailMember(ctx, mode, folder, u, output)))
      return frame.Result();
    Status alias = accounts::funAdmMailAlias1(ctx, conn, "3", folder, u, accounts::MailBefore{});
    if (frame.Failed(alias)) {
      frame.Fail("ERROR:ADDMAILALIAS", alias);
      return frame.Result();
    }
  }
  if (!frame.Commit()) return frame.Result();
  if (mail_server) RejoinLists(ctx, conn, user_id, sections, frame.stamp().ymd);
  frame.Finish();
  return frame.Result();
}

}  // namespace orvane::restore
