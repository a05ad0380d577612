// orvane passwords --hash: turns a plain-password database into an argon2id
// one in place (data/password_storage.h does the work).
#include <iostream>

#include "cli/commands.h"
#include "data/db.h"
#include "data/password_storage.h"
#include "dispatch/config.h"

namespace orvane::cli {
namespace {

struct PasswordsOptions {
  std::string config = "./ORVANE.ini";
  bool hash = false;
};

int RunPasswords(const PasswordsOptions& o) {
  if (!o.hash) {
    std::cerr << "orvane passwords: say what to do: --hash (see orvane passwords --help)\n";
    return 2;
  }
  if (int refused = CheckInstallation("passwords", o.config, /*dsn_required=*/true)) return refused;
  const std::string dsn = ConfigFile(o.config).Get("LOCAL_DB_DSN");
  data::Connection conn;
  Status status = data::Com_funDbOpen(dsn, "", "", conn);
  std::vector<data::ConversionCount> counts;
  if (status.ok()) status = data::HashStoredPasswords(conn, counts);
  // Closing only hands the connection back to the pool, emptied just below.
  if (conn.IsOpen()) data::Com_funDbClose(conn).IgnoreError();
  data::ClosePooledConnections();
  if (!status.ok()) {
    // Without the statement: it would show a password in clear.
    std::string trail = status.trail();
    trail = trail.substr(0, trail.find("<BR><BR>SQL : "));
    std::cerr << "orvane passwords: nothing changed: " << trail << "\n";
    return 1;
  }
  long total = 0;
  std::string detail;
  for (const data::ConversionCount& c : counts) {
    total += c.converted;
    detail += (detail.empty() ? "" : ", ") + c.table + " " + std::to_string(c.converted);
  }
  std::cout << "orvane passwords: converted " << total << " (" << detail << "); password mode argon2id\n";
  return 0;
}

}  // namespace

void AddPasswords(CLI::App& app, int& exit_code) {
  auto options = std::make_shared<PasswordsOptions>();
  CLI::App* cmd = app.add_subcommand("passwords", "Convert the stored passwords of a plain-password database");
  cmd->footer(
      "--hash turns every password kept in clear (T_USER.PASSWORD, T_PASSGEN's\n"
      "GEN01_PASS ... GEN10_PASS, and their _WORK twins) into an argon2id hash and\n"
      "sets the database's password mode to argon2id, all in one transaction:\n"
      "either every value is converted or nothing is. Values that are hashes\n"
      "already and empty values are left alone, so running it again converts 0.\n"
      "Writers of users wait while it runs (about 50 ms of one core per password).\n"
      "\n"
      "After it, logins are checked against the hashes, request 106 answers an\n"
      "empty password field and a change (205) with an empty password keeps the\n"
      "stored one. There is no way back to plain.\n"
      "\n"
      "Example: orvane passwords --hash --config /etc/orvane/ORVANE.ini");
  cmd->add_option("--config", options->config, "Configuration file (ORVANE.ini); odbc.ini beside it")
      ->capture_default_str();
  cmd->add_flag("--hash", options->hash, "Hash the passwords kept in clear and switch the mode to argon2id");
  cmd->callback([options, &exit_code] { exit_code = RunPasswords(*options); });
}

}  // namespace orvane::cli
