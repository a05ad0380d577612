// `orvane history`: the change history from a shell, one entry a line,
// newest first, each line starting with the entry's id; `--purge` deletes
// what is older than the retention period. Exit status 0, or 2 when the
// history cannot be read (1 for a refused filter).
#include <iostream>

#include "base/clock.h"
#include "cli/commands.h"
#include "data/db.h"
#include "dispatch/config.h"
#include "history/history_read.h"
#include "history/history_retention.h"
#include "history/history_words.h"

namespace orvane::cli {
namespace {

struct HistoryOptions {
  std::string config = "./ORVANE.ini";
  std::string user, about, group, code, since, until;
  long limit = 0;  // 0: every matching entry
  bool purge = false;
};

// "123  2026-11-25 14:03:22  admin@127.0.0.1  202 group saved  OK  group 営業部 (0001): name 営業 -> 営業部"
std::string Line(const history::Entry& e) {
  std::string answer = e.answer.substr(0, e.answer.find_first_of("\r\n"));
  std::string out = std::to_string(e.id) + "  " + e.time + "  " + (e.user.empty() ? "-" : e.user) + "@" + e.address +
                    "  " + e.code + " " + history::OperationName(e.code) + "  " + answer + "  " + history::Summary(e);
  if (e.undone_by) out += "  (undone by " + std::to_string(e.undone_by) + ")";
  return out;
}

int Purge(data::Connection& conn, const ConfigFile& config) {
  const int days = history::RetentionDays(config);
  const std::string cutoff = history::RetentionCutoff(SystemClock::Instance(), days);
  long purged = 0;
  if (Status s = history::PurgeHistory(conn, cutoff, purged); !s.ok()) {
    std::cerr << "orvane history: " << s.trail() << "\n";
    return 2;
  }
  std::cout << "orvane history: purged " << purged << (purged == 1 ? " entry" : " entries") << " older than " << cutoff
            << " (" << days << " days kept)\n";
  return 0;
}

int Print(data::Connection& conn, const HistoryOptions& o) {
  NamedValues params;
  for (const auto& [name, value] : {std::pair<const char*, const std::string&>{"user", o.user},
                                    {"about", o.about},
                                    {"group", o.group},
                                    {"code", o.code},
                                    {"since", o.since},
                                    {"until", o.until}})
    params.Add(name, value);
  history::Filter filter;
  if (Status s = history::ParseFilter(params, filter); !s.ok()) {
    std::cerr << "orvane history: " << s.trail() << "\n";
    return 1;
  }
  long left = o.limit > 0 ? o.limit : -1;
  for (;;) {
    filter.limit = left > 0 && left < history::kMaxLimit ? static_cast<int>(left) : history::kMaxLimit;
    std::vector<history::Entry> entries;
    long next = 0;
    if (Status s = history::ReadHistory(conn, filter, entries, next); !s.ok()) {
      std::cerr << "orvane history: " << s.trail() << "\n";
      return 2;
    }
    for (const history::Entry& e : entries) std::cout << Line(e) << "\n";
    if (left > 0) left -= static_cast<long>(entries.size());
    if (next == 0 || left == 0) return 0;
    filter.before = next;
  }
}

int RunHistory(const HistoryOptions& o) {
  if (int refused = CheckInstallation("history", o.config, /*dsn_required=*/true)) return refused;
  ConfigFile config(o.config);
  data::Connection conn;
  Status status = data::Com_funDbOpen(config.Get("LOCAL_DB_DSN"), "", "", conn);
  if (!status.ok()) {
    std::cerr << "orvane history: " << status.trail() << "\n";
    return 2;
  }
  int code = o.purge ? Purge(conn, config) : Print(conn, o);
  data::Com_funDbClose(conn).IgnoreError();  // nothing is left to commit
  data::ClosePooledConnections();
  return code;
}

}  // namespace

void AddHistory(CLI::App& app, int& exit_code) {
  auto o = std::make_shared<HistoryOptions>();
  CLI::App* cmd = app.add_subcommand("history", "Print the change history, newest first, or purge its old entries");
  cmd->footer(
      "One entry a line: id, time, user@address (\"local\" for orvane request), request code\n"
      "and what it is, the answer's first line, then what changed in words.\n"
      "--purge deletes the entries older than HISTORY_RETENTION_DAYS of the configuration\n"
      "(default 90), as orvane serve does once a day.\n"
      "Example: orvane history --config var/ORVANE.ini --group 0001 --since 2026-11-01");
  cmd->add_option("--config", o->config, "Configuration file (ORVANE.ini); odbc.ini beside it")->capture_default_str();
  cmd->add_option("--user", o->user, "Only changes made by this user id");
  cmd->add_option("--about", o->about, "Only changes to this user's rows (the user, memberships, rights)");
  cmd->add_option("--group", o->group, "Only changes to this group's rows (the group, its memberships)");
  cmd->add_option("--code", o->code, "Only this request code (201 ... 213, undo, restore-user, ...)");
  cmd->add_option("--since", o->since, "Only entries from this date on (YYYY-MM-DD)");
  cmd->add_option("--until", o->until, "Only entries up to this date, that day included (YYYY-MM-DD)");
  cmd->add_option("--limit", o->limit, "At most this many entries (default: all)");
  cmd->add_flag("--purge", o->purge, "Delete the entries older than the retention period instead");
  cmd->callback([o, &exit_code] { exit_code = RunHistory(*o); });
}

}  // namespace orvane::cli
