#include "transfer/import_plan.h"

#include <map>
#include <set>

#include "base/text.h"
#include "data/schema.h"
#include "transfer/import_checks.h"

namespace orvane::transfer {
namespace {

std::string BaseName(std::string_view name) {
  size_t slash = name.find_last_of('/');
  return std::string(slash == std::string_view::npos ? name : name.substr(slash + 1));
}

std::string ShownKey(const FileSpec& layout, const Row& row) {
  return text::ReplaceAll(KeyOf(layout, row), "\x1f", " ");
}

// What a new row holds in the columns its line leaves out.
Row NewRow(FileKind kind, const ImportOptions& options) {
  const FileSpec& layout = SpecOf(kind);
  Row row(layout.ExportedNames().size());
  auto set = [&](std::string_view column, std::string value) { row[layout.ExportedIndex(column)] = std::move(value); };
  if (kind == FileKind::kUsers) {
    set("alias_in_use", "0");
    set("mail_use", "0");
  } else if (kind == FileKind::kMemberships) {
    // As a member added on the pages: concurrent, from today, open-ended.
    set("kind", "0");
    set("start", options.today);
    set("end", "99999999");
  }
  return row;
}

PlanLine FileError(const std::string& file, FileKind kind, int line, std::string message) {
  PlanLine p;
  p.file = file;
  p.kind = kind;
  p.line = line;
  p.action = Action::kError;
  p.error = std::move(message);
  return p;
}

// Maps each header column to its place among the layout's columns; a header
// that names an unknown or repeated column, or leaves out a key column, is
// the whole file's error.
bool ReadHeader(const FileSpec& layout, const std::vector<std::string>& header, std::vector<const ColumnSpec*>& columns,
                std::string& error) {
  std::string known;
  for (const ColumnSpec& c : layout.columns) known += (known.empty() ? "" : ", ") + std::string(c.name);
  for (const std::string& name : header) {
    const ColumnSpec* found = nullptr;
    for (const ColumnSpec& c : layout.columns)
      if (c.name == text::Trim(name)) found = &c;
    if (!found) {
      error = "unknown column \"" + name + "\" (" + std::string(layout.file_name) + " has " + known + ")";
      return false;
    }
    for (const ColumnSpec* c : columns)
      if (c == found) {
        error = "column \"" + name + "\" given twice";
        return false;
      }
    columns.push_back(found);
  }
  for (const ColumnSpec& c : layout.columns)
    if (c.key && std::find(columns.begin(), columns.end(), &c) == columns.end()) {
      error = "no key column \"" + std::string(c.name) + "\"";
      return false;
    }
  return true;
}

void PlanFile(const ImportFile& file, const Organisation& current, const ImportOptions& options,
              std::set<FileKind>& kinds_seen, WorkState& state, std::vector<PlanLine>& out) {
  const std::string base = BaseName(file.name);
  const FileSpec* layout = FindFileSpec(base);
  if (!layout)
    return out.push_back(
        FileError(base, FileKind::kSections, 0,
                  "not a file of the organisation (sections.csv, users.csv, memberships.csv or menu_rights.csv)"));
  if (!kinds_seen.insert(layout->kind).second) return out.push_back(FileError(base, layout->kind, 0, "given twice"));
  CsvTable table;
  FileFault fault;
  if (!ReadCsv(file.bytes, options.encoding, table, fault))
    return out.push_back(FileError(base, layout->kind, fault.line, fault.message));
  std::vector<const ColumnSpec*> columns;
  std::string header_error;
  if (!ReadHeader(*layout, table.header, columns, header_error))
    return out.push_back(FileError(base, layout->kind, table.header_line, header_error));

  std::map<std::string, Row> stored;
  for (const Row& r : current.Of(layout->kind)) stored.emplace(KeyOf(*layout, r), r);
  std::map<std::string, int> seen;  // key -> line
  for (const CsvRecord& record : table.rows) {
    PlanLine p;
    p.file = base;
    p.kind = layout->kind;
    p.line = record.line;
    if (record.fields.size() != columns.size()) {
      p.error = std::to_string(record.fields.size()) + " fields where the header has " + std::to_string(columns.size());
      out.push_back(std::move(p));
      continue;
    }
    // The key first, to find the stored row the line changes.
    Row keyed(layout->ExportedNames().size());
    for (size_t i = 0; i < columns.size(); ++i)
      if (columns[i]->key) keyed[layout->ExportedIndex(columns[i]->name)] = record.fields[i];
    const std::string key = KeyOf(*layout, keyed);
    p.key = ShownKey(*layout, keyed);
    auto found = stored.find(key);
    const bool adding = found == stored.end();
    p.before = adding ? Row{} : found->second;
    p.after = adding ? NewRow(layout->kind, options) : found->second;
    std::vector<std::pair<const ColumnSpec*, std::string>> given;
    for (size_t i = 0; i < columns.size(); ++i) {
      if (!columns[i]->exported) {
        p.password = record.fields[i];
      } else {
        p.after[layout->ExportedIndex(columns[i]->name)] = record.fields[i];
      }
      given.emplace_back(columns[i], record.fields[i]);
    }
    p.error = CheckGivenValues(*layout, given, p.before, p.after);
    if (p.error.empty()) {
      auto [first, inserted] = seen.emplace(key, record.line);
      if (!inserted) p.error = "duplicate key " + p.key + ": also on line " + std::to_string(first->second);
    }
    if (!p.error.empty()) {
      p.action = Action::kError;
      out.push_back(std::move(p));
      continue;
    }
    if (adding) {
      p.action = Action::kAdd;
    } else {
      std::vector<std::string_view> names = layout->ExportedNames();
      for (size_t i = 0; i < names.size(); ++i)
        if (p.before[i] != p.after[i]) p.changes.push_back({std::string(names[i]), p.before[i], p.after[i]});
      if (!p.password.empty()) p.changes.push_back({"password", "", ""});
      p.action = p.changes.empty() ? Action::kUnchanged : Action::kChange;
    }
    state.Of(layout->kind)[key] = p.after;
    out.push_back(std::move(p));
  }
  if (!options.delete_missing || layout->kind == FileKind::kMenuRights) return;
  // Rights go with their user; a rights file leaves out no one.
  for (const auto& [key, row] : stored) {
    if (seen.count(key)) continue;
    PlanLine p;
    p.file = base;
    p.kind = layout->kind;
    p.key = ShownKey(*layout, row);
    p.action = Action::kDelete;
    p.before = row;
    state.Remove(layout->kind, key);
    out.push_back(std::move(p));
  }
}

}  // namespace

std::string_view ActionName(Action action) {
  switch (action) {
    case Action::kAdd:
      return "add";
    case Action::kChange:
      return "change";
    case Action::kUnchanged:
      return "unchanged";
    case Action::kDelete:
      return "delete";
    case Action::kError:
      break;
  }
  return "error";
}

int ImportPlan::Count(Action action) const {
  int n = 0;
  for (const PlanLine& l : lines) n += l.action == action;
  return n;
}

int ImportPlan::Count(std::string_view file, Action action) const {
  int n = 0;
  for (const PlanLine& l : lines) n += l.action == action && l.file == file;
  return n;
}

std::string Where(const PlanLine& line) {
  return line.line > 0 ? line.file + " line " + std::to_string(line.line) : line.file;
}

void PlanImport(const Organisation& current, const std::vector<ImportFile>& files, const ImportOptions& options,
                ImportPlan& plan) {
  plan = ImportPlan{};
  WorkState state(current);
  std::set<FileKind> kinds_seen;
  // Sections first, so that the users' and memberships' deletes see them.
  std::vector<const ImportFile*> ordered;
  for (const FileSpec& layout : FileSpecs())
    for (const ImportFile& f : files)
      if (BaseName(f.name) == layout.file_name) ordered.push_back(&f);
  for (const ImportFile& f : files)
    if (!FindFileSpec(BaseName(f.name))) ordered.push_back(&f);
  for (const ImportFile* f : ordered) PlanFile(*f, current, options, kinds_seen, state, plan.lines);
  CheckReferences(state, plan.lines);
  plan.after = state.ToOrganisation();
}

std::string PlanText(const ImportPlan& plan) {
  std::vector<std::string> files;
  for (const PlanLine& l : plan.lines)
    if (std::find(files.begin(), files.end(), l.file) == files.end()) files.push_back(l.file);
  auto counts = [](auto count) {
    return std::to_string(count(Action::kAdd)) + " to add, " + std::to_string(count(Action::kChange)) + " to change, " +
           std::to_string(count(Action::kUnchanged)) + " unchanged, " + std::to_string(count(Action::kDelete)) +
           " to delete, " + std::to_string(count(Action::kError)) + (count(Action::kError) == 1 ? " error" : " errors");
  };
  std::string out;
  for (const std::string& f : files) out += f + ": " + counts([&](Action a) { return plan.Count(f, a); }) + "\n";
  out += "in all: " + counts([&](Action a) { return plan.Count(a); }) + "\n";
  for (const PlanLine& l : plan.lines)
    if (l.action == Action::kError) out += "ERROR: " + Where(l) + ": " + l.error + "\n";
  for (const PlanLine& l : plan.lines) {
    if (l.action == Action::kError || l.action == Action::kUnchanged) continue;
    out += std::string(ActionName(l.action)) + ": " + Where(l) + ": " + l.key;
    for (size_t i = 0; i < l.changes.size(); ++i) {
      const ColumnChange& c = l.changes[i];
      out += (i == 0 ? ": " : ", ") + c.column;
      if (c.column != "password") out += " \"" + c.before + "\" -> \"" + c.after + "\"";
    }
    out += "\n";
  }
  return out;
}

}  // namespace orvane::transfer
