// The subcommands of `orvane`. Each Add... registers its options on the
// parent app and returns the subcommand; main runs the chosen one.
#pragma once

#include <CLI/CLI.hpp>

namespace orvane::cli {

void AddServe(CLI::App& app, int& exit_code);
void AddRequest(CLI::App& app, int& exit_code);
void AddInitDb(CLI::App& app, int& exit_code);

}  // namespace orvane::cli
