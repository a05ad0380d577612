// `orvane check-data`: lists the stored values that today's field rules
// would refuse. Exit status 0 when there are none, 1 when there are some,
// 2 when the check could not run.
#include <iostream>

#include "cli/commands.h"
#include "data/db.h"
#include "dispatch/config.h"
#include "dispatch/stored_values.h"

namespace orvane::cli {
namespace {

int CheckData(const std::string& config_path) {
  if (int refused = CheckInstallation("check-data", config_path, /*dsn_required=*/true)) return refused;
  std::string dsn = ConfigFile(config_path).Get("LOCAL_DB_DSN");
  data::Connection conn;
  std::vector<StoredValueFinding> findings;
  Status status = data::Com_funDbOpen(dsn, "", "", conn);
  if (status.ok()) status = CheckStoredValues(conn, findings);
  if (conn.IsOpen()) data::Com_funDbClose(conn).IgnoreError();
  data::ClosePooledConnections();
  if (!status.ok()) {
    std::cerr << "orvane check-data: " << status.trail() << "\n";
    return 2;
  }
  for (const StoredValueFinding& f : findings)
    std::cout << f.table << "\t" << f.key << "\t" << f.column << "\t" << f.shown << "\t" << f.rule << "\n";
  if (findings.empty()) {
    std::cout << "orvane check-data: every stored value keeps today's field rules\n";
    return 0;
  }
  std::cout << "orvane check-data: " << findings.size() << (findings.size() == 1 ? " value breaks" : " values break")
            << " today's field rules\n";
  return 1;
}

}  // namespace

void AddCheckData(CLI::App& app, int& exit_code) {
  auto config = std::make_shared<std::string>("./ORVANE.ini");
  CLI::App* cmd = app.add_subcommand("check-data", "List stored values that break today's field rules");
  cmd->footer(
      "Reads the sections, users, memberships and posts (and the _WORK twins) and prints,\n"
      "one a line, tab-separated: table, key, column, the value (quoted, control characters\n"
      "and bytes that are not UTF-8 escaped) and the rule it breaks, as docs/field-rules.md\n"
      "states them. Changes nothing: such values keep working; fix them through the pages.\n"
      "Exit status 0 when none breaks a rule, 1 when some do, 2 when the check cannot run.");
  cmd->add_option("--config", *config, "Configuration file (ORVANE.ini); odbc.ini beside it")->capture_default_str();
  cmd->callback([config, &exit_code] { exit_code = CheckData(*config); });
}

}  // namespace orvane::cli
