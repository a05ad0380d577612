#include <iostream>

#include "base/text.h"
#include "cli/commands.h"
#include "data/db.h"
#include "data/demo_data.h"
#include "data/demo_org.h"
#include "data/dialect.h"
#include "data/password_storage.h"
#include "data/schema.h"
#include "dispatch/config.h"

namespace orvane::cli {
namespace {

struct InitDbOptions {
  std::string config = "./ORVANE.ini";
  bool demo = false;
  bool large_demo = false;
  bool plain_passwords = false;
  std::string print_ddl;
};

int PrintDdl(const std::string& name) {
  const data::Dialect* dialect = nullptr;
  if (text::EqualsIgnoreCase(name, "sqlite")) dialect = &data::Dialect::Of(data::Dialect::Kind::kSqlite);
  if (text::EqualsIgnoreCase(name, "postgresql")) dialect = &data::Dialect::Of(data::Dialect::Kind::kPostgres);
  if (text::EqualsIgnoreCase(name, "sqlserver")) dialect = &data::Dialect::Of(data::Dialect::Kind::kSqlServer);
  if (!dialect) {
    std::cerr << "orvane init-db: --print-ddl takes sqlite, postgresql or sqlserver\n";
    return 2;
  }
  for (const std::string& s : data::SchemaStatements(*dialect)) std::cout << s << ";\n";
  return 0;
}

int InitDb(const InitDbOptions& o) {
  if (!o.print_ddl.empty()) return PrintDdl(o.print_ddl);
  if (int refused = CheckInstallation("init-db", o.config, /*dsn_required=*/true)) return refused;
  std::string dsn = ConfigFile(o.config).Get("LOCAL_DB_DSN");
  data::Connection conn;
  Status status = data::Com_funDbOpen(dsn, "", "", conn);
  if (status.ok()) status = data::CreateSchema(conn);
  std::vector<std::string> widened;
  if (status.ok()) status = data::WidenPasswordColumns(conn, widened);
  // The mode is chosen on the users found before any demo user is added.
  data::ModeChoice mode;
  if (status.ok()) status = data::ChoosePasswordMode(conn, o.plain_passwords, mode);
  if (status.ok() && o.demo) status = data::InsertDemoData(conn, SystemClock::Instance());
  if (status.ok() && o.demo && o.large_demo) status = data::InsertLargeDemoData(conn, SystemClock::Instance());
  std::vector<data::ConversionCount> converted;
  // The demo users' passwords follow the mode like any other.
  if (status.ok() && o.demo && mode.mode == data::PasswordMode::kArgon2id)
    status = data::HashStoredPasswords(conn, converted);
  std::string backend(conn.dialect().Name());
  // Closing only hands the connection back to the pool, emptied just below.
  if (conn.IsOpen()) data::Com_funDbClose(conn).IgnoreError();
  data::ClosePooledConnections();
  if (!status.ok()) {
    std::cerr << "orvane init-db: " << status.trail() << "\n";
    return 1;
  }
  std::cout << "orvane init-db: tables ready on data source " << dsn << " (" << backend << ")"
            << (o.demo ? ", demo organisation present" : "") << "\n";
  for (const std::string& column : widened)
    std::cout << "orvane init-db: widened " << column << " to hold password hashes\n";
  // Silence means the default, argon2id; plain is always said.
  if (mode.mode == data::PasswordMode::kPlain) {
    std::cout << "orvane init-db: password mode plain (passwords kept in clear)\n";
    if (!o.plain_passwords)
      std::cout << "orvane init-db: " << (mode.was_recorded ? "" : "the database already had users; ")
                << "to store argon2id hashes instead run: orvane passwords --hash --config " << o.config << "\n";
  }
  return 0;
}

}  // namespace

void AddInitDb(CLI::App& app, int& exit_code) {
  auto options = std::make_shared<InitDbOptions>();
  CLI::App* cmd = app.add_subcommand("init-db", "Create the tables on the configured data source");
  cmd->footer(
      "Reads LOCAL_DB_DSN from the configuration file and creates every table the\n"
      "system reads or writes (with their _WORK twins and indexes) on that ODBC data\n"
      "source. Tables and indexes that exist already are left untouched, so running\n"
      "it again is safe. Data sources are looked up first in an odbc.ini beside the\n"
      "configuration file, then in ~/.odbc.ini and /etc/odbc.ini; connects with the\n"
      "default login kop47/kop47.\n"
      "\n"
      "A new installation, for example:\n"
      "  1. var/ORVANE.ini holding LOCAL_DB_DSN=orvane (and the other keys)\n"
      "  2. var/odbc.ini holding\n"
      "       [orvane]\n"
      "       Driver=SQLite3\n"
      "       Database=/srv/orvane/orvane.db\n"
      "  3. orvane init-db --config var/ORVANE.ini --demo\n"
      "\n"
      "A new database records password mode argon2id (hashes; 106 answers no\n"
      "password); --plain-passwords records plain. A database that already has\n"
      "users and no mode stays plain until `orvane passwords --hash` converts it.\n"
      "Password columns too narrow for a hash are widened, values kept.\n"
      "See docs/operations.md for PostgreSQL and SQL Server.");
  cmd->add_option("--config", options->config, "Configuration file (ORVANE.ini); odbc.ini beside it")
      ->capture_default_str();
  cmd->add_flag("--demo", options->demo,
                "Also add a small demo organisation (top section 0000, users admin/admin and yamada/yamada) "
                "when the top section is missing");
  cmd->add_flag("--large-demo", options->large_demo,
                "With --demo, also add 300 groups and 3,000 users with Japanese names behind the small demo "
                "(they cannot log in), to show the tree and the search at size");
  cmd->add_flag("--plain-passwords", options->plain_passwords,
                "Keep passwords in clear (password mode plain) on a new database, for pages that need request "
                "106 to answer the stored password; the default is argon2id hashes");
  cmd->add_option("--print-ddl", options->print_ddl,
                  "Print the statements for sqlite, postgresql or sqlserver instead of connecting");
  cmd->callback([options, &exit_code] { exit_code = InitDb(*options); });
}

}  // namespace orvane::cli
