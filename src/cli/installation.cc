#include <cerrno>
#include <cstring>
#include <fstream>
#include <iostream>

#include "cli/commands.h"
#include "data/db.h"
#include "dispatch/config.h"

namespace orvane::cli {
namespace {

// LOCAL_DB_DSN names a data source that an odbc.ini defines. A defined
// source whose database does not answer yet is no reason to refuse.
Status DataSourceDefined(const ConfigFile& config, bool dsn_required) {
  std::string dsn;
  if (Status s = config.ComIniFileLoad("LOCAL_DB_DSN", dsn); !s.ok())
    return dsn_required ? s : Status::Ok();  // else the request answers for itself
  data::Connection conn;
  Status open = data::Com_funDbOpen(dsn, "", "", conn);
  if (open.cause().sqlstate == "IM002")
    return Status::Failure("the data source \"" + dsn + "\" (LOCAL_DB_DSN) is not defined in " + config.Folder() +
                           "/odbc.ini or the system's odbc.ini");
  if (open.ok()) data::Com_funDbClose(conn).IgnoreError();  // it was only a probe
  return Status::Ok();
}

}  // namespace

int CheckInstallation(const char* command, const std::string& config_path, bool dsn_required) {
  // What cannot work is refused at once, with its reason, not answered
  // with an error to every request later.
  if (std::ifstream probe(config_path); !probe) {
    std::cerr << "orvane " << command << ": cannot read the configuration file " << config_path << ": "
              << std::strerror(errno) << "\n";
    return 2;
  }
  ConfigFile config(config_path);
  data::UseOdbcIniBeside(config.Folder());  // before any thread opens a connection
  if (Status s = DataSourceDefined(config, dsn_required); !s.ok()) {
    std::cerr << "orvane " << command << ": " << s.trail() << "\n";
    return 2;
  }
  return 0;
}

bool LoadApplication(const char* command, const ConfigFile& config, ApplicationStore& app) {
  Status loaded = LoadApplicationValues(config, app);
  if (!loaded.ok()) std::cerr << "orvane " << command << ": " << loaded.trail() << "\n";
  return loaded.ok();
}

}  // namespace orvane::cli
