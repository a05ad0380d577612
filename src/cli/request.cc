#include <iostream>

#include "cli/commands.h"
#include "data/db.h"
#include "dispatch/application_store.h"
#include "requests/request_table.h"
#include "requests/web_class.h"

namespace orvane::cli {
namespace {

struct RequestOptions {
  std::string config = "./ORVANE.ini";
  std::string user;
  std::string query;
};

int RunOne(const RequestOptions& o) {
  if (int refused = CheckInstallation("request", o.config, /*dsn_required=*/false)) return refused;
  ConfigFile config(o.config);
  ApplicationStore app;
  if (!LoadApplication("request", config, app)) return 1;
  Session session;
  if (!o.user.empty()) session.Set("PUB_USR_ID", o.user);
  RequestContext ctx(config, session, app, SystemClock::Instance());
  ParseUrlEncoded(o.query, ctx.fields);
  RunRequest(ctx);
  data::ClosePooledConnections();
  std::cout << ctx.response() << std::flush;  // exactly the answer: no newline
  return 0;
}

// A changing request's fields carry their kind; "checked" marks the values
// the request stores, which the validation step checks.
std::string CodeListing() {
  std::string out = "Request codes (fields read, in order; a change's fields with their kind):\n";
  for (const RequestRoute& r : RequestTable()) {
    out += "  " + std::string(r.code) + "  " + std::string(r.operation);
    std::string fields;
    for (const FieldRule& f : r.field_rules) {
      fields += (fields.empty() ? "" : ", ") + std::string(f.field);
      if (!r.changes_data) continue;
      fields += " [" + std::string(KindName(f.kind));
      if (f.stored) fields += f.required ? ", checked, required" : ", checked";
      if (!f.when.empty()) fields += " when " + std::string(f.when) + " is 1";
      fields += "]";
    }
    if (!fields.empty()) out += " (" + fields + ")";
    out += "\n";
  }
  return out;
}

}  // namespace

void AddRequest(CLI::App& app, int& exit_code) {
  auto options = std::make_shared<RequestOptions>();
  CLI::App* cmd = app.add_subcommand("request", "Run one request in-process and print its answer exactly");
  cmd->footer(CodeListing() +
              "Common field: DBFlg=1 works on the _WORK tables.\n"
              "A checked value that breaks its kind's rule (docs/field-rules.md) is refused with\n"
              "ERROR:INVALIDVALUE, CR LF, \"<field>: <reason>\", and nothing is changed.\n"
              "Example: orvane request --config var/ORVANE.ini 'ReqNo=105&Group_cd=0000'\n"
              "The answer is printed with no newline added; exit status 0 whenever an answer was produced.");
  cmd->add_option("--config", options->config, "Configuration file (ORVANE.ini)")->capture_default_str();
  cmd->add_option("--user", options->user, "Run as this logged-in user id (session PUB_USR_ID)");
  cmd->add_option("query", options->query, "The request fields, e.g. 'ReqNo=001' (URL-encoded)")->required();
  cmd->callback([options, &exit_code] { exit_code = RunOne(*options); });
}

}  // namespace orvane::cli
