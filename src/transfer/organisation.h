// The organisation as the transfer's four CSV files see it: which columns
// each file has (the CSV name, the stored column, the field kind that checks
// an imported value, whether it is part of the line's key), and the reading
// of the live tables into rows of those columns, in a fixed order (sections
// parents first, the rest by key), so that two exports of the same data are
// the same bytes on every database.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "data/db.h"
#include "dispatch/field_rules.h"

namespace orvane::transfer {

enum class FileKind { kSections = 0, kUsers = 1, kMemberships = 2, kMenuRights = 3 };
inline constexpr int kFileKinds = 4;

struct ColumnSpec {
  std::string_view name;       // the header's name
  std::string_view db_column;  // empty: not stored as one column (menu rights, a new password)
  FieldKind kind;
  bool key = false;
  bool exported = true;  // false: accepted on import only (a new user's password)
};

struct FileSpec {
  FileKind kind;
  std::string_view file_name;  // "sections.csv"
  std::span<const ColumnSpec> columns;
  // The exported columns, in the order the files carry them.
  std::vector<std::string_view> ExportedNames() const;
  // Position of `name` among the exported columns; -1 when it is none.
  int ExportedIndex(std::string_view name) const;
};

// The four files, in the order an import applies them.
std::span<const FileSpec> FileSpecs();
const FileSpec& SpecOf(FileKind kind);
// nullptr for a name that is none of the four.
const FileSpec* FindFileSpec(std::string_view file_name);

using Row = std::vector<std::string>;  // the exported columns, in order

struct Organisation {
  std::vector<Row> files[kFileKinds];
  std::vector<Row>& Of(FileKind kind) { return files[static_cast<int>(kind)]; }
  const std::vector<Row>& Of(FileKind kind) const { return files[static_cast<int>(kind)]; }
};

// A row's key: its key columns joined by a separator no value holds.
std::string KeyOf(const FileSpec& layout, const Row& row);

// The granted menu numbers of a rights row ("/01/02/21/"; "" for none):
// a column holding its own number is granted.
std::string RightsText(const std::vector<std::string>& menu_values);

// Reads the live tables on `conn` (inside the caller's transaction, if any).
Status ReadOrganisation(data::Connection& conn, Organisation& out);

}  // namespace orvane::transfer
