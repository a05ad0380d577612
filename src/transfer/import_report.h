// The import's report: one line per applied line of the files (file, line,
// key, action, result, the password made for a new user, what a retry of
// its mail commands needs), as CSV to
// download or keep, read back to retry the mail part of the lines whose
// mail commands failed. The password is given here once: nothing else
// keeps it in plain text.
#pragma once

#include <string>
#include <vector>

#include "transfer/csv_file.h"

namespace orvane::transfer {

inline constexpr std::string_view kResultDone = "done";
inline constexpr std::string_view kMailFailedPrefix = "mail failed: ";

struct ReportLine {
  std::string file;
  int line = 0;
  std::string key;
  std::string action;    // add, change, delete
  std::string result;    // "done", or "mail failed: <why>"
  std::string password;  // a new user's generated password
  // What the mail server knew of a user before the line (mail use, alias,
  // alias in use, joined by "/"): a retry needs it to send the same commands.
  std::string mail_before;
  // The mailing lists whose command has not gone through, joined by ","
  // (no list name holds one): what a retry sends again.
  std::string lists;
};

struct ImportReport {
  bool applied = false;
  std::string refusal;  // why nothing changed
  std::vector<ReportLine> lines;
  int MailFailures() const;
  int Count(std::string_view action) const;  // lines of "add", "change" or "delete"
  // "applied: 3 added, 1 changed, 0 deleted; 1 mail command failed" or the refusal.
  std::string Summary() const;
};

std::string ReportCsv(const ImportReport& report);
// False with `error` naming the line when the bytes are not a report.
bool ReadReportCsv(std::string_view bytes, ImportReport& report, std::string& error);

}  // namespace orvane::transfer
