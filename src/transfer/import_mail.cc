#include "transfer/import_mail.h"

#include <map>
#include <tuple>

#include "accounts/mail_account.h"
#include "accounts/mail_alias.h"
#include "accounts/mail_config.h"
#include "accounts/user_registration.h"
#include "accounts/user_storage.h"
#include "base/clock.h"
#include "base/text.h"
#include "dispatch/required_keys.h"
#include "transfer/import_lists.h"

namespace orvane::transfer {
namespace {

constexpr std::string_view kNoConfig = "ERROR:READINFOFILE_SV_FOLDER";
constexpr std::string_view kListFailure = "list ";

std::string_view FlagOf(std::string_view action) { return action == "add" ? "3" : action == "delete" ? "1" : "2"; }

const std::string& UserValue(const Row& user, std::string_view column) {
  return user[SpecOf(FileKind::kUsers).ExportedIndex(column)];
}

// The account and alias commands of a user line; empty when all went
// through, else why not. `user`: the row after the line (before it for a
// delete); `password`: the new one ("" when none).
std::string SendUserMail(RequestContext& ctx, data::Connection& conn, const MailSide& mail, std::string_view action,
                         const Row& user, const std::string& password, std::string_view mail_before) {
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
  // An account is never made without a password: the retry needs the file.
  if (mode == "3" && password.empty())
    return "account command: no password for the new account (it came from users.csv: give that file to the retry)";
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

// The list commands of a line: those that fail stay in its `lists`, their
// reasons join `failures`.
void SendLists(RequestContext& ctx, data::Connection& conn, FileKind kind, const std::vector<std::string>& lists,
               const std::string& today, ReportLine& line, std::vector<std::string>& failures) {
  std::vector<std::string> left;
  for (const std::string& list : lists) {
    if (list.empty()) continue;  // a report line without lists
    std::string failed = SendListCommand(ctx, conn, kind, line.key, list, today);
    if (failed.empty()) continue;
    left.push_back(list);
    failures.push_back(std::move(failed));
  }
  line.lists = text::Join(left, ",");
}

void SetResult(ReportLine& line, const std::vector<std::string>& failures) {
  line.result =
      failures.empty() ? std::string(kResultDone) : std::string(kMailFailedPrefix) + text::Join(failures, "; ");
}

// The passwords users.csv gave, by line: (id, password).
Status FilePasswords(const std::vector<ImportFile>& files, Encoding encoding,
                     std::map<int, std::pair<std::string, std::string>>& out) {
  for (const ImportFile& f : files) {
    const std::string name = f.name.substr(f.name.rfind('/') + 1);
    if (name != SpecOf(FileKind::kUsers).file_name) continue;
    CsvTable table;
    FileFault fault;
    if (!ReadCsv(f.bytes, encoding, table, fault))
      return Status::Refused(name + " line " + std::to_string(fault.line) + ": " + fault.message);
    int id = -1, password = -1;
    for (size_t i = 0; i < table.header.size(); ++i) {
      if (table.header[i] == "id") id = static_cast<int>(i);
      if (table.header[i] == "password") password = static_cast<int>(i);
    }
    for (const CsvRecord& r : table.rows)
      if (id >= 0 && id < static_cast<int>(r.fields.size()))
        out[r.line] = {r.fields[id], password >= 0 && password < static_cast<int>(r.fields.size()) ? r.fields[password]
                                                                                                   : std::string()};
  }
  return Status::Ok();
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

void SendImportMail(RequestContext& ctx, data::Connection& conn, const MailSide& mail, const ImportPlan& plan,
                    const Organisation& before, const std::string& today, ImportReport& report) {
  if (!mail.enabled) return;
  std::map<std::tuple<std::string, int, std::string>, const PlanLine*> planned;  // (file, line, key)
  for (const PlanLine& p : plan.lines) planned[{p.file, p.line, p.key}] = &p;
  for (ReportLine& line : report.lines) {
    auto found = planned.find({line.file, line.line, line.key});
    if (found == planned.end()) continue;
    const PlanLine& p = *found->second;
    std::vector<std::string> failures;
    if (p.kind == FileKind::kUsers) {
      const std::string& password = line.password.empty() ? p.password : line.password;
      std::string failed = SendUserMail(ctx, conn, mail, line.action, p.action == Action::kDelete ? p.before : p.after,
                                        password, line.mail_before);
      if (!failed.empty()) failures.push_back(std::move(failed));
    }
    SendLists(ctx, conn, p.kind, ListsOfLine(p, before, plan.after), today, line, failures);
    SetResult(line, failures);
  }
}

Status RetryMail(RequestContext& ctx, ImportReport& report, const std::vector<ImportFile>& files, Encoding encoding) {
  MailSide mail;
  std::string dsn;
  if (!ReadMailSide(ctx, mail) || !ReadRequiredKey(ctx, "LOCAL_DB_DSN", kNoConfig, dsn))
    return Status::Failure(ctx.response());
  std::map<int, std::pair<std::string, std::string>> passwords;
  if (Status s = FilePasswords(files, encoding, passwords); !s.ok()) return s;
  const bool file_given = !passwords.empty();
  for (const ReportLine& line : report.lines) {
    auto given = passwords.find(line.line);
    if (file_given && line.file == SpecOf(FileKind::kUsers).file_name && line.action != "delete" &&
        (given == passwords.end() || given->second.first != line.key))
      return Status::Refused("users.csv line " + std::to_string(line.line) + " does not hold " + line.key +
                             ": not the file of this import");
  }
  data::Connection conn;
  Organisation org;
  Status read = data::Com_funDbOpen(dsn, "", "", conn);
  if (read.ok()) read = ReadOrganisation(conn, org);
  if (!read.ok()) return read;
  std::string today, now;
  Com_subGetDate(ctx.clock(), today, now);
  const FileSpec& users = SpecOf(FileKind::kUsers);
  for (ReportLine& line : report.lines) {
    if (!line.result.starts_with(kMailFailedPrefix) || !mail.enabled) continue;
    const FileSpec* layout = FindFileSpec(line.file);
    if (!layout) continue;
    std::vector<std::string> failures;
    // The account and alias commands failed (their reason comes first):
    // sent again; a line whose lists alone failed sends only those.
    const bool user_part = layout->kind == FileKind::kUsers &&
                           !std::string_view(line.result).substr(kMailFailedPrefix.size()).starts_with(kListFailure);
    if (user_part) {
      Row user;
      for (const Row& r : org.Of(FileKind::kUsers))
        if (KeyOf(users, r) == line.key) user = r;
      if (user.empty() && line.action == "delete") {
        user = Row(users.ExportedNames().size());
        user[users.ExportedIndex("id")] = line.key;
      }
      std::string password = line.password;
      if (password.empty() && passwords.count(line.line)) password = passwords[line.line].second;
      std::string failed = user.empty() ? std::string("no such user now")
                                        : SendUserMail(ctx, conn, mail, line.action, user, password, line.mail_before);
      if (!failed.empty()) failures.push_back(std::move(failed));
    }
    SendLists(ctx, conn, layout->kind, text::Split(line.lists, ","), today, line, failures);
    SetResult(line, failures);
  }
  data::Com_funDbClose(conn).IgnoreError();  // only read
  return Status::Ok();
}

}  // namespace orvane::transfer
