// orvane: the back end of the organisation-administration pages.
#include <CLI/CLI.hpp>

#include "cli/commands.h"

int main(int argc, char** argv) {
  CLI::App app{
      "orvane: back end of the organisation-administration pages.\n"
      "Keeps sections, users, memberships, posts and menu rights in an ODBC\n"
      "database and the mail server in step with them. Pages call it with\n"
      "ReqNo=<three-digit code>&<fields> and get one plain-text answer."};
  app.require_subcommand(1);
  int exit_code = 0;
  orvane::cli::AddServe(app, exit_code);
  orvane::cli::AddRequest(app, exit_code);
  orvane::cli::AddInitDb(app, exit_code);
  orvane::cli::AddAudit(app, exit_code);
  orvane::cli::AddPasswords(app, exit_code);
  orvane::cli::AddCheckData(app, exit_code);
  orvane::cli::AddExport(app, exit_code);
  orvane::cli::AddImport(app, exit_code);
  orvane::cli::AddHistory(app, exit_code);
  orvane::cli::AddRestore(app, exit_code);
  orvane::cli::AddUndo(app, exit_code);
  CLI11_PARSE(app, argc, argv);
  return exit_code;
}
