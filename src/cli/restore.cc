// `orvane restore` and `orvane undo`: a deleted user or group back, or one
// change undone, from the change history, as the History screen does it.
#include <iostream>

#include "cli/commands.h"
#include "data/db.h"
#include "dispatch/application_store.h"
#include "restore/restore_deleted.h"
#include "restore/undo.h"

namespace orvane::cli {
namespace {

struct RestoreOptions {
  std::string config = "./ORVANE.ini";
  std::string as = "admin";
  std::string user, group;
  long entry = 0;
};

// Runs `body` with a request context as `orvane request` makes one, prints
// the outcome, and gives the exit status: 0 done, 1 refused (the reason on
// stderr), 2 an installation that cannot run it.
template <typename Body>
int RunOne(const char* command, const RestoreOptions& o, Body body) {
  if (int refused = CheckInstallation(command, o.config, /*dsn_required=*/true)) return refused;
  ConfigFile config(o.config);
  ApplicationStore app;
  if (!LoadApplication(command, config, app)) return 2;
  Session session;
  session.Set("PUB_USR_ID", o.as);
  RequestContext ctx(config, session, app, SystemClock::Instance());
  restore::Outcome out = body(ctx);
  data::ClosePooledConnections();
  if (!out.ok) {
    std::cerr << "orvane " << command << ": " << out.error << ": " << out.message << "\n";
    return 1;
  }
  std::cout << "done: history entry " << out.entry << "\n";
  return 0;
}

void CommonOptions(CLI::App* cmd, RestoreOptions& o) {
  cmd->add_option("--config", o.config, "Configuration file (ORVANE.ini)")->capture_default_str();
  cmd->add_option("--as", o.as, "The administrator it is done as (UPD_USR and the history's user)")
      ->capture_default_str();
}

}  // namespace

void AddRestore(CLI::App& app, int& exit_code) {
  auto o = std::make_shared<RestoreOptions>();
  CLI::App* cmd = app.add_subcommand("restore", "Bring back a deleted user or group from the change history");
  CommonOptions(cmd, *o);
  auto* user = cmd->add_option("--user", o->user, "The deleted user's id");
  auto* group = cmd->add_option("--group", o->group, "The deleted group's code");
  user->excludes(group);
  cmd->footer(
      "Within HISTORY_RETENTION_DAYS (default 90) of the delete. Exit status 0 when restored,\n"
      "1 with the reason when refused (id or mail address taken since, a group gone).");
  cmd->callback([o, &exit_code] {
    if (o->user.empty() == o->group.empty()) {
      std::cerr << "orvane restore: give --user ID or --group CODE\n";
      exit_code = 2;
      return;
    }
    exit_code = RunOne("restore", *o, [&](RequestContext& ctx) {
      if (!o->user.empty()) return restore::RestoreUser(ctx, o->user);
      return restore::RestoreGroup(ctx, o->group);
    });
  });
}

void AddUndo(CLI::App& app, int& exit_code) {
  auto o = std::make_shared<RestoreOptions>();
  CLI::App* cmd = app.add_subcommand("undo", "Undo one change of the change history (`orvane history` lists them)");
  CommonOptions(cmd, *o);
  cmd->add_option("entry", o->entry, "The history entry's id")->required()->check(CLI::PositiveNumber);
  cmd->footer("Exit status 0 when undone, 1 with the reason when refused (a row changed since).");
  cmd->callback([o, &exit_code] {
    exit_code = RunOne("undo", *o, [&](RequestContext& ctx) { return restore::Undo(ctx, o->entry); });
  });
}

}  // namespace orvane::cli
