#include "transfer/import_mail.h"

#include "accounts/mail_account.h"
#include "accounts/mail_alias.h"
#include "accounts/mail_config.h"
#include "accounts/user_registration.h"
#include "accounts/user_storage.h"
#include "dispatch/required_keys.h"

namespace orvane::transfer {
namespace {

constexpr std::string_view kNoConfig = "ERROR:READINFOFILE_SV_FOLDER";

std::string_view FlagOf(std::string_view action) { return action == "add" ? "3" : action == "delete" ? "1" : "2"; }

const std::string& UserValue(const Row& user, std::string_view column) {
  return user[SpecOf(FileKind::kUsers).ExportedIndex(column)];
}

}  // namespace

bool ReadMailSide(RequestContext& ctx, MailSide& out) {
  out = MailSide{};
  std::vector<std::string> keys;
  if (!ReadRequiredKeys(ctx, {{"ML_MODE", kNoConfig}}, keys)) return false;
  if (keys[0] != "2" || ctx.WorkTables()) return true;
  if (!accounts::ReadMailServerKeys(ctx, keys)) return false;
  out.enabled = true;
  out.folder = keys[0].ends_with('\\') ? keys[0] : keys[0] + "\\";
  return true;
}

std::string MailBefore(const Row& user) {
  if (user.empty()) return "//";
  return UserValue(user, "mail_use") + "/" + UserValue(user, "mail") + "/" + UserValue(user, "alias_in_use");
}

std::string SendUserMail(RequestContext& ctx, data::Connection& conn, const MailSide& mail, std::string_view action,
                         const Row& user, const std::string& password, std::string_view mail_before) {
  if (!mail.enabled) return {};
  const size_t first = mail_before.find('/'), last = mail_before.rfind('/');
  if (first == std::string_view::npos || first == last) return "no mail values before the line";
  const std::string old_use(mail_before.substr(0, first)), old_alias(mail_before.substr(first + 1, last - first - 1)),
      old_alias_flag(mail_before.substr(last + 1));
  const std::string flag(FlagOf(action));
  accounts::UserForm u;
  u.user_cd = UserValue(user, "id");
  u.user_ps = password;
  // A change without a new password gives the account none either.
  std::string mode = accounts::AccountMode(flag, old_use, flag == "1" ? "" : UserValue(user, "mail_use"));
  if (mode == "2" && password.empty()) mode.clear();
  // What the commands write is the registration's answer, not the import's.
  DiscardedWrites discarded(ctx);
  if (!mode.empty()) {
    std::string output;
    if (Status s = accounts::funAdmMailMember(ctx, mode, mail.folder, u, output); !s.ok())
      return "account command: " + (s.trail().empty() ? output : s.trail());
  }
  u.mail_ad = flag == "1" ? "" : UserValue(user, "mail");
  u.mail_fl = flag == "1" ? "" : UserValue(user, "alias_in_use");
  Status alias_sent = accounts::funAdmMailAlias1(ctx, conn, flag, mail.folder, u,
                                                 accounts::MailBefore{old_use, old_alias, old_alias_flag});
  if (!alias_sent.ok()) return "alias command: " + alias_sent.trail();
  return {};
}

bool RetryMail(RequestContext& ctx, ImportReport& report, std::string& error) {
  MailSide mail;
  std::string dsn;
  if (!ReadMailSide(ctx, mail) || !ReadRequiredKey(ctx, "LOCAL_DB_DSN", kNoConfig, dsn)) {
    error = ctx.response();
    return false;
  }
  data::Connection conn;
  Organisation org;
  Status read = data::Com_funDbOpen(dsn, "", "", conn);
  if (read.ok()) read = ReadOrganisation(conn, org);
  if (!read.ok()) {
    error = read.trail();
    return false;
  }
  const FileSpec& users = SpecOf(FileKind::kUsers);
  for (ReportLine& line : report.lines) {
    if (!line.result.starts_with(kMailFailedPrefix)) continue;
    Row user;
    for (const Row& r : org.Of(FileKind::kUsers))
      if (KeyOf(users, r) == line.key) user = r;
    if (user.empty() && line.action != "delete") {
      line.result = std::string(kMailFailedPrefix) + "no such user now";
      continue;
    }
    if (user.empty()) {
      user = Row(users.ExportedNames().size());
      user[users.ExportedIndex("id")] = line.key;
    }
    std::string failed = SendUserMail(ctx, conn, mail, line.action, user, line.password, line.mail_before);
    line.result = failed.empty() ? std::string(kResultDone) : std::string(kMailFailedPrefix) + failed;
  }
  data::Com_funDbClose(conn).IgnoreError();  // only read
  return true;
}

}  // namespace orvane::transfer
