// `orvane export`: the organisation as four CSV files in a folder (UTF-8
// with a byte-order mark, or Shift_JIS), for a spreadsheet or a later
// `orvane import`. Exit status 0 when written, 2 when not.
#include "transfer/export.h"

#include <filesystem>
#include <fstream>
#include <iostream>

#include "cli/commands.h"
#include "data/db.h"
#include "dispatch/config.h"

namespace orvane::cli {
namespace {

int Export(const std::string& config_path, const std::string& out_dir, const std::string& encoding_name) {
  transfer::Encoding encoding;
  if (!transfer::ParseEncoding(encoding_name, encoding)) {
    std::cerr << "orvane export: unknown encoding \"" << encoding_name << "\" (utf-8 or shift_jis)\n";
    return 2;
  }
  if (int refused = CheckInstallation("export", config_path, /*dsn_required=*/true)) return refused;
  std::vector<transfer::ExportedFile> files;
  Status status = transfer::ExportOrganisation(ConfigFile(config_path).Get("LOCAL_DB_DSN"), encoding, files);
  data::ClosePooledConnections();
  if (!status.ok()) {
    std::cerr << "orvane export: " << status.trail() << "\n";
    return 2;
  }
  std::error_code ec;
  std::filesystem::create_directories(out_dir, ec);
  for (const transfer::ExportedFile& f : files) {
    std::filesystem::path path = std::filesystem::path(out_dir) / f.name;
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(f.bytes.data(), static_cast<std::streamsize>(f.bytes.size()));
    out.close();
    if (!out) {
      std::cerr << "orvane export: cannot write " << path.string() << "\n";
      return 2;
    }
  }
  std::cout << "orvane export: wrote";
  for (const transfer::ExportedFile& f : files) std::cout << " " << f.name;
  std::cout << " to " << out_dir << "\n";
  return 0;
}

}  // namespace

void AddExport(CLI::App& app, int& exit_code) {
  struct Options {
    std::string config = "./ORVANE.ini", out, encoding = "utf-8";
  };
  auto o = std::make_shared<Options>();
  CLI::App* cmd = app.add_subcommand("export", "Write the organisation as CSV files");
  cmd->footer(
      "Writes sections.csv, users.csv, memberships.csv and menu_rights.csv into --out,\n"
      "each with a header line naming its columns (docs/transfer.md). Never passwords.\n"
      "Exit status 0 when written, 2 when not.");
  cmd->add_option("--config", o->config, "Configuration file (ORVANE.ini); odbc.ini beside it")->capture_default_str();
  cmd->add_option("--out", o->out, "Folder for the files (created when missing)")->required();
  cmd->add_option("--encoding", o->encoding, "utf-8 (with a byte-order mark) or shift_jis")->capture_default_str();
  cmd->callback([o, &exit_code] { exit_code = Export(o->config, o->out, o->encoding); });
}

}  // namespace orvane::cli
