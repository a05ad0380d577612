#include "transfer/import_report.h"

#include "base/whole_number.h"

namespace orvane::transfer {
namespace {

constexpr const char* kHeader[] = {"file", "line", "key", "action", "result", "password", "mail_before"};

}  // namespace

int ImportReport::MailFailures() const {
  int n = 0;
  for (const ReportLine& l : lines) n += l.result.starts_with(kMailFailedPrefix);
  return n;
}

std::string ImportReport::Summary() const {
  if (!applied) return "not applied: " + refusal;
  int added = 0, changed = 0, deleted = 0;
  for (const ReportLine& l : lines) {
    added += l.action == "add";
    changed += l.action == "change";
    deleted += l.action == "delete";
  }
  const int failed = MailFailures();
  return "applied: " + std::to_string(added) + " added, " + std::to_string(changed) + " changed, " +
         std::to_string(deleted) + " deleted; " + std::to_string(failed) +
         (failed == 1 ? " mail command failed" : " mail commands failed");
}

std::string ReportCsv(const ImportReport& report) {
  std::vector<std::vector<std::string>> rows;
  rows.emplace_back(std::begin(kHeader), std::end(kHeader));
  for (const ReportLine& l : report.lines)
    rows.push_back(
        {l.file, l.line > 0 ? std::to_string(l.line) : "", l.key, l.action, l.result, l.password, l.mail_before});
  std::string out;
  FileFault fault;
  WriteCsv(rows, Encoding::kUtf8, out, fault);  // UTF-8 holds every character
  return out;
}

bool ReadReportCsv(std::string_view bytes, ImportReport& report, std::string& error) {
  report = ImportReport{};
  CsvTable table;
  FileFault fault;
  if (!ReadCsv(bytes, Encoding::kUtf8, table, fault)) {
    error = "line " + std::to_string(fault.line) + ": " + fault.message;
    return false;
  }
  if (table.header != std::vector<std::string>(std::begin(kHeader), std::end(kHeader))) {
    error = "line " + std::to_string(table.header_line) + ": not the header of an import report";
    return false;
  }
  for (const CsvRecord& r : table.rows) {
    std::optional<long long> number = 0;
    if (r.fields.size() == 7 && !r.fields[1].empty()) number = ParseWholeNumber(r.fields[1], 1, 1 << 30);
    if (r.fields.size() != 7 || !number) {
      error = "line " + std::to_string(r.line) + ": not a line of an import report";
      return false;
    }
    report.lines.push_back(
        {r.fields[0], static_cast<int>(*number), r.fields[2], r.fields[3], r.fields[4], r.fields[5], r.fields[6]});
  }
  report.applied = true;
  return true;
}

}  // namespace orvane::transfer
