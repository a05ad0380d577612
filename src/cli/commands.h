// The subcommands of `orvane`. Each Add... registers its options on the
// parent app and returns the subcommand; main runs the chosen one.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

#include "dispatch/application_store.h"

namespace orvane::cli {

void AddServe(CLI::App& app, int& exit_code);
void AddRequest(CLI::App& app, int& exit_code);
void AddInitDb(CLI::App& app, int& exit_code);
void AddAudit(CLI::App& app, int& exit_code);
void AddPasswords(CLI::App& app, int& exit_code);
void AddCheckData(CLI::App& app, int& exit_code);
void AddExport(CLI::App& app, int& exit_code);
void AddImport(CLI::App& app, int& exit_code);
void AddHistory(CLI::App& app, int& exit_code);
void AddRestore(CLI::App& app, int& exit_code);
void AddUndo(CLI::App& app, int& exit_code);

// Refuses, with one line on stderr naming the reason, a configuration file
// that cannot be read and a LOCAL_DB_DSN that no odbc.ini defines (a
// missing or empty one too when `dsn_required`). Returns the exit status:
// 0 to go on, 2 to stop. Points ODBC at the odbc.ini beside the file.
int CheckInstallation(const char* command, const std::string& config_path, bool dsn_required);

// The application values a command's requests need, read from `config`;
// false, with one line on stderr naming the reason, when they cannot be.
bool LoadApplication(const char* command, const ConfigFile& config, ApplicationStore& app);

}  // namespace orvane::cli
