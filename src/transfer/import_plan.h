// The import's first half, which changes nothing: the given files (any
// subset of the four, each naming its columns in its header line) read and
// every line matched by its key against the organisation as it stands, and
// classified: add, change (the columns that change, before and after),
// unchanged, or error (the reason, naming the file and line). Rows missing
// from a file change nothing, unless `delete_missing` makes them deletes.
//
// The checks: each value by its field kind (the request table's rules),
// shapes of the order, kind and rights columns, a duplicate key in a file,
// an unknown parent, user or section, a parent change that would make a
// cycle, a department code another section holds, two primary memberships
// of one user at once, and a section removed while it keeps children.
// References are checked against the organisation as the import would
// leave it, so a file may add a section and its members together.
//
// Pure: the caller reads the organisation (inside the apply's transaction,
// so that what was checked is what is written over).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "transfer/csv_file.h"
#include "transfer/organisation.h"

namespace orvane::transfer {

struct ImportFile {
  std::string name;  // the file's name; only the part after the last "/" counts
  std::string bytes;
};

struct ImportOptions {
  Encoding encoding = Encoding::kUtf8;
  bool delete_missing = false;
  std::string today;  // yyyymmdd: a new membership's default start
};

enum class Action { kAdd, kChange, kUnchanged, kDelete, kError };
std::string_view ActionName(Action action);  // "add", "change", ...

struct ColumnChange {
  std::string column, before, after;
};

struct PlanLine {
  std::string file;  // the file's name without its folder
  FileKind kind = FileKind::kSections;
  int line = 0;     // 0: a row the file left out (a delete), or the file as a whole
  std::string key;  // the key columns joined by blanks: "0004", "yamada 0004"
  Action action = Action::kError;
  std::vector<ColumnChange> changes;
  std::string error;
  Row before, after;     // the exported columns before and after the line
  std::string password;  // users: the password the file gives (never shown)
};

struct ImportPlan {
  std::vector<PlanLine> lines;  // by file, in line order; a file's deletes after its lines
  Organisation after;           // the organisation as the import would leave it
  int Count(Action action) const;
  int Count(std::string_view file, Action action) const;
  bool CanApply() const { return Count(Action::kError) == 0; }
};

void PlanImport(const Organisation& current, const std::vector<ImportFile>& files, const ImportOptions& options,
                ImportPlan& plan);

// The plan for people: counts first (per file, then in all), then every
// error, then the adds, changes and deletes; unchanged lines only counted.
std::string PlanText(const ImportPlan& plan);

// "sections.csv line 4" (or "sections.csv" for line 0).
std::string Where(const PlanLine& line);

}  // namespace orvane::transfer
