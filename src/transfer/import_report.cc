#include "transfer/import_report.h"

#include <algorithm>

#include "base/whole_number.h"

namespace orvane::transfer {
namespace {

constexpr const char* kHeader[] = {"file", "line", "key", "action", "result", "password", "mail_before", "lists"};
// A report written before the lists were kept: read as having none.
constexpr size_t kColumnsWithoutLists = 7;

}  // namespace

int ImportReport::MailFailures() const {
  int n = 0;
  for (const ReportLine& l : lines) n += l.result.starts_with(kMailFailedPrefix);
  return n;
}

int ImportReport::Count(std::string_view action) const {
  int n = 0;
  for (const ReportLine& l : lines) n += l.action == action;
  return n;
}

std::string ImportReport::Summary() const {
  if (!applied) return "not applied: " + refusal;
  const int failed = MailFailures();
  return "applied: " + std::to_string(Count("add")) + " added, " + std::to_string(Count("change")) + " changed, " +
         std::to_string(Count("delete")) + " deleted; " + std::to_string(failed) +
         (failed == 1 ? " mail command failed" : " mail commands failed");
}

std::string ReportCsv(const ImportReport& report) {
  std::vector<std::vector<std::string>> rows;
  rows.emplace_back(std::begin(kHeader), std::end(kHeader));
  for (const ReportLine& l : report.lines)
    rows.push_back({l.file, l.line > 0 ? std::to_string(l.line) : "", l.key, l.action, l.result, l.password,
                    l.mail_before, l.lists});
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
  const size_t columns = table.header.size();
  if ((columns != std::size(kHeader) && columns != kColumnsWithoutLists) ||
      !std::equal(table.header.begin(), table.header.end(), std::begin(kHeader))) {
    error = "line " + std::to_string(table.header_line) + ": not the header of an import report";
    return false;
  }
  for (const CsvRecord& r : table.rows) {
    std::optional<long long> number = 0;
    if (r.fields.size() == columns && !r.fields[1].empty()) number = ParseWholeNumber(r.fields[1], 1, 1 << 30);
    if (r.fields.size() != columns || !number) {
      error = "line " + std::to_string(r.line) + ": not a line of an import report";
      return false;
    }
    report.lines.push_back({r.fields[0], static_cast<int>(*number), r.fields[2], r.fields[3], r.fields[4], r.fields[5],
                            r.fields[6], columns > kColumnsWithoutLists ? r.fields[7] : std::string()});
  }
  report.applied = true;
  return true;
}

}  // namespace orvane::transfer
