#include "server/transfer_routes.h"

#include <openssl/evp.h>

#include <atomic>
#include <chrono>
#include <nlohmann/json.hpp>

#include "base/whole_number.h"
#include "dispatch/request_context.h"
#include "server/api_answer.h"
#include "transfer/export.h"
#include "transfer/import_apply.h"
#include "transfer/import_mail.h"

namespace orvane {
namespace {

using Steady = std::chrono::steady_clock;
using json = nlohmann::json;

// An upload carries whole files (a 10,000-user users.csv is a few MiB, in
// base64 a third more): the import's endpoints take more than the edge
// allows other requests. IMPORT_MAX_BYTES in the configuration changes it.
constexpr size_t kImportMaxBytes = size_t{64} << 20;

size_t ImportMaxBytes(const ConfigFile& config) {
  std::optional<long long> bytes =
      ParseWholeNumber(config.Get("IMPORT_MAX_BYTES"), 0, 1LL << 32, {.blanks_around = true, .minus_sign = false});
  return bytes ? static_cast<size_t>(*bytes) : kImportMaxBytes;
}

// The import running in this server, for the progress the page polls.
std::atomic<size_t> progress_done{0}, progress_total{0};
std::atomic<bool> progress_running{false};

long long MicrosSince(Steady::time_point start) {
  return std::chrono::duration_cast<std::chrono::microseconds>(Steady::now() - start).count();
}

void Log(ServerState& state, const HttpRequest& req, const HttpResponse& res, Steady::time_point start) {
  // The report may hold new passwords: never in the log.
  state.access_log.Write({req.remote_address,
                          req.method,
                          req.path,
                          "",
                          res.status,
                          MicrosSince(start),
                          res.status == 200 ? std::string() : res.body,
                          false,
                          {}});
}

// A report may hold new passwords: a 200's body never goes to the log.
void Reply(ServerState& state, const HttpRequest& req, HttpResponse& res, Steady::time_point start, int status,
           const json& body) {
  ApiReply(state, req, res, start, status, body, {.log_body = false});
}

bool Base64Decode(const std::string& in, std::string& out) {
  if (in.size() % 4 != 0) return false;
  out.resize(in.size() / 4 * 3);
  int n = EVP_DecodeBlock(reinterpret_cast<unsigned char*>(out.data()),
                          reinterpret_cast<const unsigned char*>(in.data()), static_cast<int>(in.size()));
  if (n < 0) return false;
  size_t padding = in.ends_with("==") ? 2 : in.ends_with("=") ? 1 : 0;
  out.resize(static_cast<size_t>(n) - padding);
  return true;
}

// {"files": [{"name", "content" (base64)}], "encoding", "delete_missing"}:
// the files are bytes, as a Shift_JIS file must stay until it is read.
bool ReadUpload(const HttpRequest& req, std::vector<transfer::ImportFile>& files, transfer::ImportOptions& options,
                std::string& error) {
  json body = json::parse(req.body, nullptr, false);
  if (body.is_discarded() || !body.is_object() || !body.contains("files") || !body["files"].is_array()) {
    error = "the body must be {\"files\": [{\"name\", \"content\"}], \"encoding\", \"delete_missing\"}";
    return false;
  }
  for (const json& f : body["files"]) {
    transfer::ImportFile& file = files.emplace_back();
    if (!f.is_object() || !f.value("name", json()).is_string() || !f.value("content", json()).is_string() ||
        !Base64Decode(f["content"].get<std::string>(), file.bytes)) {
      error = "each file needs a name and its bytes in base64";
      return false;
    }
    file.name = f["name"].get<std::string>();
  }
  if (!transfer::ParseEncoding(body.value("encoding", std::string("utf-8")), options.encoding)) {
    error = "encoding: utf-8 or shift_jis";
    return false;
  }
  options.delete_missing = body.value("delete_missing", false);
  return true;
}

json PlanJson(const transfer::ImportPlan& plan) {
  json counts = json::object(), lines = json::array();
  for (transfer::Action a : {transfer::Action::kAdd, transfer::Action::kChange, transfer::Action::kUnchanged,
                             transfer::Action::kDelete, transfer::Action::kError})
    counts[std::string(transfer::ActionName(a))] = plan.Count(a);
  // Errors first, then the lines that change something.
  for (bool errors : {true, false})
    for (const transfer::PlanLine& l : plan.lines) {
      if ((l.action == transfer::Action::kError) != errors || l.action == transfer::Action::kUnchanged) continue;
      json changes = json::array();
      for (const transfer::ColumnChange& c : l.changes)
        changes.push_back({{"column", c.column}, {"before", c.before}, {"after", c.after}});
      lines.push_back({{"file", l.file},
                       {"line", l.line},
                       {"key", l.key},
                       {"action", transfer::ActionName(l.action)},
                       {"changes", std::move(changes)},
                       {"error", l.error}});
    }
  return {{"counts", std::move(counts)}, {"lines", std::move(lines)}, {"can_apply", plan.CanApply()}};
}

json ReportJson(const transfer::ImportReport& report) {
  // The numbers too: the page words its summary in its own language.
  return {{"applied", report.applied},
          {"summary", report.Summary()},
          {"added", report.Count("add")},
          {"changed", report.Count("change")},
          {"deleted", report.Count("delete")},
          {"mail_failures", report.MailFailures()},
          {"report", transfer::ReportCsv(report)}};
}

// A transfer runs as the session's user from the client's address.
void PrepareTransferContext(RequestContext& ctx, const HttpRequest& req) {
  ctx.client_address = req.remote_address;
  transfer::PrepareImportContext(ctx);
}

void HandleExport(ServerState& state, const HttpRequest& req, HttpResponse& res) {
  const auto start = Steady::now();
  if (!ApiAdministrator(state, req, res, start, false)) return;
  NamedValues query;
  ParseUrlEncoded(req.Query(), query);
  const transfer::FileSpec* layout = transfer::FindFileSpec(query.Get("file"));
  transfer::Encoding encoding = transfer::Encoding::kUtf8;
  if (!layout || (query.Has("encoding") && !transfer::ParseEncoding(query.Get("encoding"), encoding)))
    return Reply(state, req, res, start, 400,
                 ApiError("ERROR:INVALIDVALUE",
                          "file: sections.csv, users.csv, memberships.csv or menu_rights.csv; encoding: utf-8 or "
                          "shift_jis"));
  std::vector<transfer::ExportedFile> files;
  Status s = transfer::ExportOrganisation(state.config.Get("LOCAL_DB_DSN"), encoding, files);
  if (!s.ok())
    return Reply(state, req, res, start, s.refused() ? 400 : 500,
                 ApiError(s.refused() ? "ERROR:INVALIDVALUE" : "ERROR:DBSELECT", s.refused() ? s.trail() : ""));
  for (transfer::ExportedFile& f : files) {
    if (f.name != layout->file_name) continue;
    res.status = 200;
    res.SetHeader("Cache-Control", "no-store");
    res.SetHeader("Content-Disposition", "attachment; filename=\"" + f.name + "\"");
    res.SetContent(std::move(f.bytes),
                   encoding == transfer::Encoding::kUtf8 ? "text/csv; charset=utf-8" : "text/csv; charset=Shift_JIS");
  }
  Log(state, req, res, start);
}

void HandleImport(ServerState& state, const HttpRequest& req, HttpResponse& res, bool apply) {
  const auto start = Steady::now();
  std::shared_ptr<Session> session = ApiAdministrator(state, req, res, start, true);
  if (!session) return;
  std::vector<transfer::ImportFile> files;
  transfer::ImportOptions options;
  std::string error, now;
  if (!ReadUpload(req, files, options, error))
    return Reply(state, req, res, start, 400, ApiError("ERROR:INVALIDVALUE", error));
  Com_subGetDate(state.clock, options.today, now);
  transfer::ImportPlan plan;
  if (!apply) {
    data::Connection conn;
    transfer::Organisation current;
    Status s = data::Com_funDbOpen(state.config.Get("LOCAL_DB_DSN"), "", "", conn);
    if (s.ok()) s = transfer::ReadOrganisation(conn, current);
    if (conn.IsOpen()) data::Com_funDbClose(conn).IgnoreError();  // only read
    if (!s.ok()) return Reply(state, req, res, start, 500, ApiError("ERROR:DBSELECT"));
    transfer::PlanImport(current, files, options, plan);
    return Reply(state, req, res, start, 200, PlanJson(plan));
  }
  RequestContext ctx(state.config, *session, state.app, state.clock);
  PrepareTransferContext(ctx, req);
  transfer::ImportReport report;
  progress_done = 0;
  progress_total = 0;
  progress_running = true;
  transfer::ApplyImport(ctx, files, options, plan, report, [](size_t done, size_t total) {
    progress_done = done;
    progress_total = total;
  });
  progress_running = false;
  state.search.Invalidate();
  json body = ReportJson(report);
  if (!report.applied) {
    body["refusal"] = report.refusal;
    body["plan"] = PlanJson(plan);
  }
  Reply(state, req, res, start, 200, body);
}

void HandleRetry(ServerState& state, const HttpRequest& req, HttpResponse& res) {
  const auto start = Steady::now();
  std::shared_ptr<Session> session = ApiAdministrator(state, req, res, start, true);
  if (!session) return;
  transfer::ImportReport report;
  std::vector<transfer::ImportFile> files;
  transfer::ImportOptions options;
  std::string error, csv = req.body;
  // The report alone (CSV), or {"report", "files", "encoding"} with the
  // import's users.csv for the passwords it set.
  if (req.Header("Content-Type").starts_with("application/json")) {
    json body = json::parse(req.body, nullptr, false);
    csv = body.is_object() && body.value("report", json()).is_string() ? body["report"].get<std::string>() : "";
    if (csv.empty() || !ReadUpload(req, files, options, error))
      return Reply(
          state, req, res, start, 400,
          ApiError("ERROR:INVALIDVALUE", error.empty() ? "the body needs the report's CSV as \"report\"" : error));
  }
  if (!transfer::ReadReportCsv(csv, report, error))
    return Reply(state, req, res, start, 400, ApiError("ERROR:INVALIDVALUE", error));
  RequestContext ctx(state.config, *session, state.app, state.clock);
  PrepareTransferContext(ctx, req);
  if (Status s = transfer::RetryMail(ctx, report, files, options.encoding); !s.ok())
    return Reply(state, req, res, start, s.refused() ? 400 : 500,
                 ApiError(s.refused() ? "ERROR:INVALIDVALUE" : "ERROR:DBSELECT", s.refused() ? s.trail() : ""));
  Reply(state, req, res, start, 200, ReportJson(report));
}

}  // namespace

void RegisterTransferRoutes(Router& server, ServerState& state) {
  server.Get("/api/export", [&state](const HttpRequest& req, HttpResponse& res) { HandleExport(state, req, res); });
  const size_t upload = ImportMaxBytes(state.config);
  server.PostUpload(
      "/api/import/preview",
      [&state](const HttpRequest& req, HttpResponse& res) { HandleImport(state, req, res, false); }, upload);
  server.PostUpload(
      "/api/import/apply", [&state](const HttpRequest& req, HttpResponse& res) { HandleImport(state, req, res, true); },
      upload);
  server.PostUpload(
      "/api/import/retry-mail", [&state](const HttpRequest& req, HttpResponse& res) { HandleRetry(state, req, res); },
      upload);
  server.Get("/api/import/progress", [&state](const HttpRequest& req, HttpResponse& res) {
    const auto start = Steady::now();
    if (!ApiAdministrator(state, req, res, start, false)) return;
    Reply(state, req, res, start, 200,
          {{"running", progress_running.load()}, {"done", progress_done.load()}, {"total", progress_total.load()}});
  });
}

}  // namespace orvane
