#include <fstream>
#include <iostream>

#include "cli/commands.h"
#include "dispatch/config.h"
#include "server/audit_log.h"

namespace orvane::cli {
namespace {

struct AuditOptions {
  std::string config = "./ORVANE.ini";
  std::string audit_log;  // empty: audit.log beside the configuration file
  AuditFilter filter;
};

int PrintAudit(const AuditOptions& o) {
  const std::string path = o.audit_log.empty() ? ConfigFile(o.config).Folder() + "/audit.log" : o.audit_log;
  std::ifstream log(path);
  if (!log) {
    std::cerr << "orvane audit: cannot read the audit log " << path << "\n";
    return 2;
  }
  for (const std::string& line : ReadableAuditLines(log, o.filter)) std::cout << line << "\n";
  return 0;
}

}  // namespace

void AddAudit(CLI::App& app, int& exit_code) {
  auto options = std::make_shared<AuditOptions>();
  CLI::App* cmd = app.add_subcommand("audit", "Print the audit log readably: who changed what, logins and logouts");
  cmd->footer(
      "One line per entry: time, user@client, request code (or login, login-failed,\n"
      "login-throttled, logout), the answer's code, then the fields sent (passwords\n"
      "show as ***) or what throttled a login.\n"
      "Example: orvane audit --config var/ORVANE.ini --since 2026-11-01 --code 212");
  cmd->add_option("--config", options->config, "Configuration file; the audit log is read beside it")
      ->capture_default_str();
  cmd->add_option("--audit-log", options->audit_log, "The audit log to read instead");
  cmd->add_option("--since", options->filter.since, "Only entries from this date on (YYYY-MM-DD)");
  cmd->add_option("--user", options->filter.user, "Only entries of this user id");
  cmd->add_option("--code", options->filter.code,
                  "Only this request code (201 ... 213) or login, login-failed, login-throttled, logout");
  cmd->callback([options, &exit_code] { exit_code = PrintAudit(*options); });
}

}  // namespace orvane::cli
