#include "accounts/user_registration.h"

#include <memory>
#include <utility>
#include <vector>

#include "accounts/file_system.h"
#include "accounts/mail_account.h"
#include "accounts/mail_alias.h"
#include "accounts/mail_config.h"
#include "accounts/section_mail_list.h"
#include "accounts/user_storage.h"
#include "base/text.h"
#include "data/password_mode.h"
#include "dispatch/optional_fields.h"
#include "dispatch/required_keys.h"
#include "dispatch/write_frame.h"

namespace orvane::accounts {
namespace {

constexpr std::string_view kNoConfig = "ERROR:READINFOFILE_SV_FOLDER";

// The frame's own codes stand alone; a failed step's code carries its text;
// a failed rollback changes no answer (the connection goes back rolled
// back); a close that fails after another failure writes "ERROR:DBCLOSE"
// first.
constexpr WriteRules kUserRules = {.close_failure = WriteRules::CloseFailure::kBefore,
                                   .frame_trail = false,
                                   .step_trail = true,
                                   .rollback_failure = {}};

// The storage routine's answer code, CR LF in front of its text.
std::string StorageCode(std::string_view flag) {
  std::string code = flag == "1" ? "ERROR:DELETEUSER" : flag == "2" ? "ERROR:UPDATEUSER" : "ERROR:INSERTUSER";
  code.append(text::kCrLf);
  return code;
}

// ML_FOLDER as the tools' command-line prefix, ending in "\".
std::string ToolFolder(const std::string& ml_folder) {
  return ml_folder.ends_with('\\') ? ml_folder : ml_folder + "\\";
}

// The user's stored update stamp, joined; empty when there is no such user.
Status StoredUserStamp(const RequestContext& ctx, data::Connection& conn, const std::string& user_cd,
                       std::string& stamp) {
  data::Sql sql;
  sql << "select UPD_YMD ,UPD_HMS from " << data::Table(ctx.USR_MST) << " where USER_ID = " << data::Quoted(user_cd);
  return data::SelectRows(conn, sql, {"UPD_YMD", "UPD_HMS"}, [&stamp](const std::vector<std::string>& v) {
    stamp = JoinedStamp(v[0], v[1]);
    return false;
  });
}

}  // namespace

std::string AccountMode(std::string_view flag, std::string_view old_flag, std::string_view new_flag) {
  auto is = [](std::string_view a, std::string_view b) { return text::EqualsIgnoreCase(a, b); };
  const bool new_off = new_flag.empty() || is(new_flag, "0");
  // The table is kept as the pages have always been served, "0" against
  // empty included: switching mail on deletes (mode "1"), off creates ("3").
  if (new_off && is(old_flag, "0")) return {};  // no account before or after
  // A deleted user's account, when there is one, goes whatever the flags say.
  std::string_view mode = flag;
  if (flag == "1" || is(old_flag, new_flag)) {
    mode = flag;
  } else if (new_off) {
    mode = "3";
  } else if (is(old_flag, "0")) {
    mode = "1";
  }
  return std::string(mode);  // built from a view: GCC 12 warns falsely on a literal assignment
}

void RegistUser1(RequestContext& ctx, const std::string& flag, const UserForm& user, const MailBefore& before) {
  std::vector<std::string> keys, mail_keys;
  if (!ReadRequiredKeys(ctx, {{"LOCAL_DB_DSN", kNoConfig}, {"ML_MODE", kNoConfig}}, keys)) return;
  const bool mail_server = keys[1] == "2";
  // The mail server's keys matter only when it is kept in step.
  if (mail_server && !ReadMailServerKeys(ctx, mail_keys)) return;
  WriteFrame frame(ctx, kUserRules);
  if (!frame.Start()) return;
  const bool remove = flag == "1", change = flag == "2", add = flag == "3";
  if (!remove && !change && !add) return ctx.Write("ERROR:ILLEGALUPDATEFLAG");

  const std::string& user_cd = user.user_cd;
  MailBefore old = before;
  if (remove) {
    // What the mail server is to forget is the stored user's, not the page's.
    old = MailBefore{};
    if (Status s = ReadStoredUser(ctx, frame.Dsn(), user_cd, old); frame.Failed(s))
      return ctx.Write(StorageCode(flag) + s.trail());
  }

  // A delete holds the user table, so a membership add (207), which holds
  // it to read that its user exists, sees either the user or its absence.
  // So does a change that compares the loaded stamp: no other save comes
  // between the comparison and the write.
  const bool compare_stamp = change && HasUpdStamp(ctx);
  if (!frame.Open() || !(remove || compare_stamp ? frame.Begin(ctx.USR_MST) : frame.Begin())) return;
  data::Connection& conn = frame.conn();
  if (compare_stamp) {
    std::string stored;
    if (Status s = StoredUserStamp(ctx, conn, user_cd, stored); frame.Failed(s))
      return frame.Fail(StorageCode(flag), s);
    if (stored != ctx.Field(kUpdStamp)) return frame.Fail(kStampChanged);
  }
  std::vector<std::string> sections;
  if (Status s = Get_g_cd(ctx, conn, user_cd, sections); frame.Failed(s)) return frame.Fail("ERROR:GETMAILINGLIST");

  // How passwords are kept is read in the transaction that stores one.
  data::PasswordMode passwords = data::PasswordMode::kPlain;
  if (!remove) {
    if (Status s = data::ReadPasswordMode(conn, passwords); frame.Failed(s)) return frame.Fail(StorageCode(flag), s);
  }
  const bool hashed = passwords == data::PasswordMode::kArgon2id;

  Status stored = remove   ? funDelUser(ctx, conn, user_cd)
                  : change ? funUpdUser(ctx, conn, user, before.mail_ufl, frame.stamp(), passwords)
                           : funInsUser(ctx, conn, user, frame.stamp(), passwords);
  if (frame.Failed(stored)) {
    if (stored.refused()) return frame.Fail("ERROR:" + stored.trail());
    return frame.Fail(StorageCode(flag), stored);  // an answered status keeps its code
  }

  if (mail_server && !ctx.WorkTables()) {
    const std::string folder = ToolFolder(mail_keys[0]);
    std::string mode = AccountMode(flag, old.mail_ufl, user.mail_ufl);
    // A change that keeps the stored password (hashes, none typed) has no
    // new password to give the account: its mail password stays too.
    if (hashed && mode == "2" && user.user_ps.empty()) mode.clear();
    if (!mode.empty()) {
      std::string output;
      if (!frame.Step("ERROR:ADDMAILUSER", funAdmMailMember(ctx, mode, folder, user, output))) return;
    }
    Status alias = funAdmMailAlias1(ctx, conn, flag, folder, user, old);
    if (frame.Failed(alias)) return frame.Fail("ERROR:ADDMAILALIAS", alias);  // a missing ML_SERVER's code stands
    if (remove) {
      std::string mailbox = mail_keys[0];
      mailbox.append(mailbox.ends_with('\\') ? "users\\" : "\\users\\").append(user_cd);
      std::unique_ptr<FileSystem> fso;
      Status made = funCreateObject_FileSystem(fso);
      if (!frame.Step(StorageCode(flag), made)) return;
      if (fso->FolderExists(mailbox) && !frame.Step(StorageCode(flag), funDeleteFolder(*fso, mailbox))) return;
    }
  }

  if (!frame.Commit()) return;
  if (remove && !ctx.WorkTables()) {
    // The user is gone whatever the lists say; a list that keeps the
    // address is cleaned by hand, as the answer cannot tell.
    for (const std::string& sec_cd : sections) {
      DiscardedWrites discarded(ctx);
      funDelMailList(ctx, conn, sec_cd, user_cd).IgnoreError();
    }
  }
  // The rows are committed: the logged-in user's session follows them.
  // With hashes stored the session keeps no password.
  if ((add || change) && ctx.session().Get("PUB_USR_ID") == user_cd) {
    if (!hashed) ctx.session().Set("PUB_USR_PW", user.user_ps);
    ctx.session().Set("PUB_MAIL", user.mail_ad);
    if (!hashed) ctx.session().Set("PUB_MAIL_USR_PW", user.user_ps);
  }
  frame.Finish();
}

}  // namespace orvane::accounts
