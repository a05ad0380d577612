// `orvane import`: the organisation's CSV files read back. With --dry-run
// it prints what each line would do (counts first, errors first) and
// changes nothing; without, it applies them all in one transaction and
// writes a report (CSV: each line's outcome and the passwords made for new
// users). --retry-mail REPORT sends again only the mail commands that a
// report lists as failed; the import's users.csv given with it gives back
// the passwords it set, which the report never keeps.
//
// Exit status: 0 every line can be applied (dry run) or was applied with
// its mail commands; 1 a line errs or the import was refused, nothing
// changed; 2 the command cannot run; 3 applied, but some mail commands
// failed (listed in the report).
#include <fcntl.h>
#include <sys/file.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "cli/commands.h"
#include "data/db.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "requests/web_class.h"
#include "transfer/import_apply.h"
#include "transfer/import_mail.h"

namespace orvane::cli {
namespace {

struct ImportOptions {
  std::string config = "./ORVANE.ini", encoding = "utf-8", report = "import-report.csv", retry, user = "import";
  bool dry_run = false, delete_missing = false;
  std::vector<std::string> files;
};

bool ReadWhole(const std::string& path, std::string& bytes) {
  std::ifstream in(path, std::ios::binary);
  if (!in) return false;
  std::ostringstream s;
  s << in.rdbuf();
  bytes = s.str();
  return true;
}

// A lock file beside the configuration: one import at a time on an
// installation, whichever process runs it. Released when the process ends.
bool LockInstallation(const std::string& config_path) {
  std::filesystem::path lock = std::filesystem::path(config_path).parent_path() / ".orvane-import.lock";
  int fd = ::open(lock.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600);
  return fd >= 0 && ::flock(fd, LOCK_EX | LOCK_NB) == 0;  // fd kept open: the lock lives with the process
}

// On a terminal: a bar, the lines done and the time left, on one line.
class ProgressBar {
 public:
  ProgressBar() : shown_(::isatty(STDERR_FILENO) == 1), start_(std::chrono::steady_clock::now()) {}
  void operator()(size_t done, size_t total) {
    if (!shown_ || total == 0 || (done % 50 != 0 && done != total)) return;
    double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    const int width = 30, filled = static_cast<int>(width * done / total);
    long left = done ? static_cast<long>(elapsed * (total - done) / done + 0.5) : 0;
    std::cerr << "\r[" << std::string(filled, '#') << std::string(width - filled, ' ') << "] " << done << "/" << total
              << " lines, " << left << " s left " << (done == total ? "\n" : "") << std::flush;
  }

 private:
  bool shown_;
  std::chrono::steady_clock::time_point start_;
};

int WriteReport(const ImportOptions& o, const transfer::ImportReport& report) {
  std::ofstream out(o.report, std::ios::binary | std::ios::trunc);
  std::string bytes = transfer::ReportCsv(report);
  out.write(bytes.data(), static_cast<std::streamsize>(bytes.size()));
  out.close();
  if (!out) {
    std::cerr << "orvane import: cannot write the report " << o.report << "\n";
    return 2;
  }
  std::cout << "orvane import: " << report.Summary() << "; report in " << o.report << "\n";
  for (const transfer::ReportLine& l : report.lines)
    if (l.result != transfer::kResultDone)
      std::cout << l.file << (l.line ? " line " + std::to_string(l.line) : "") << ": " << l.key << ": " << l.result
                << "\n";
  return report.MailFailures() > 0 ? 3 : 0;
}

int Import(const ImportOptions& o) {
  transfer::ImportOptions options;
  if (!transfer::ParseEncoding(o.encoding, options.encoding)) {
    std::cerr << "orvane import: unknown encoding \"" << o.encoding << "\" (utf-8 or shift_jis)\n";
    return 2;
  }
  options.delete_missing = o.delete_missing;
  if (int refused = CheckInstallation("import", o.config, /*dsn_required=*/true)) return refused;
  if (o.files.empty() && o.retry.empty()) {
    std::cerr << "orvane import: give the files to import, or --retry-mail with a report\n";
    return 2;
  }
  ConfigFile config(o.config);
  ApplicationStore app;
  if (!LoadApplication("import", config, app)) return 2;
  Session session;
  session.Set("PUB_USR_ID", o.user);
  RequestContext ctx(config, session, app, SystemClock::Instance());
  transfer::PrepareImportContext(ctx);
  std::string today, now;
  Com_subGetDate(ctx.clock(), today, now);
  options.today = today;
  if (!o.dry_run && !LockInstallation(o.config)) {
    std::cerr << "orvane import: another import is running on this installation; try again when it has finished\n";
    return 1;
  }

  std::vector<transfer::ImportFile> files;
  for (const std::string& path : o.files) {
    transfer::ImportFile& f = files.emplace_back();
    f.name = path;
    if (!ReadWhole(path, f.bytes)) {
      std::cerr << "orvane import: cannot read " << path << "\n";
      return 2;
    }
  }
  if (!o.retry.empty()) {
    transfer::ImportReport report;
    std::string bytes, error;
    if (!ReadWhole(o.retry, bytes) || !transfer::ReadReportCsv(bytes, report, error)) {
      std::cerr << "orvane import: " << o.retry << ": " << (error.empty() ? "cannot read it" : error) << "\n";
      return 2;
    }
    if (Status s = transfer::RetryMail(ctx, report, files, options.encoding); !s.ok()) {
      std::cerr << "orvane import: " << s.trail() << "\n";
      return 2;
    }
    data::ClosePooledConnections();
    return WriteReport(o, report);
  }

  transfer::ImportPlan plan;
  if (o.dry_run) {
    data::Connection conn;
    transfer::Organisation current;
    Status read = data::Com_funDbOpen(config.Get("LOCAL_DB_DSN"), "", "", conn);
    if (read.ok()) read = transfer::ReadOrganisation(conn, current);
    if (conn.IsOpen()) data::Com_funDbClose(conn).IgnoreError();  // only read
    data::ClosePooledConnections();
    if (!read.ok()) {
      std::cerr << "orvane import: " << read.trail() << "\n";
      return 2;
    }
    transfer::PlanImport(current, files, options, plan);
    std::cout << transfer::PlanText(plan);
    return plan.CanApply() ? 0 : 1;
  }
  transfer::ImportReport report;
  ProgressBar bar;
  transfer::ApplyImport(ctx, files, options, plan, report, std::ref(bar));
  data::ClosePooledConnections();
  if (!report.applied) {
    if (!plan.CanApply()) std::cout << transfer::PlanText(plan);
    std::cout << "orvane import: " << report.Summary() << "\n";
    return 1;
  }
  return WriteReport(o, report);
}

}  // namespace

void AddImport(CLI::App& app, int& exit_code) {
  auto o = std::make_shared<ImportOptions>();
  CLI::App* cmd = app.add_subcommand("import", "Read the organisation's CSV files back (preview with --dry-run)");
  cmd->footer(
      "FILES are any of sections.csv, users.csv, memberships.csv and menu_rights.csv, each\n"
      "with a header line naming its columns (docs/transfer.md). --dry-run prints what each\n"
      "line would do and changes nothing. Without it, every line is applied in one\n"
      "transaction, or none when any line errs, and the report (--report) lists each line's\n"
      "outcome and the passwords made for new users. Rows missing from a file stay, unless\n"
      "--delete-missing. --retry-mail REPORT [users.csv] sends again the mail commands a\n"
      "report lists as failed (the import's users.csv: the passwords it set). Exit status 0 done (or can be done), 1 "
      "refused, 2 cannot run, 3 applied with\n"
      "failed mail commands.");
  cmd->add_option("--config", o->config, "Configuration file (ORVANE.ini); odbc.ini beside it")->capture_default_str();
  cmd->add_flag("--dry-run", o->dry_run, "Print what each line would do; change nothing");
  cmd->add_flag("--delete-missing", o->delete_missing, "Delete the rows a given file leaves out");
  cmd->add_option("--encoding", o->encoding, "utf-8 (a byte-order mark is allowed) or shift_jis")
      ->capture_default_str();
  cmd->add_option("--report", o->report, "Where the report goes")->capture_default_str();
  cmd->add_option("--retry-mail", o->retry, "A report whose failed mail commands are sent again");
  cmd->add_option("--user", o->user, "The id the changed rows are stamped with")->capture_default_str();
  cmd->add_option("files", o->files, "The CSV files");
  cmd->callback([o, &exit_code] { exit_code = Import(*o); });
}

}  // namespace orvane::cli
