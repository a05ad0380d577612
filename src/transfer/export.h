// The export: the organisation's four CSV files (sections.csv, users.csv,
// memberships.csv, menu_rights.csv), each a header line naming its columns
// and one line a row, read in one transaction so that the files agree with
// each other. Never a password. `orvane export` and GET /api/export call it.
#pragma once

#include <string>
#include <vector>

#include "base/status.h"
#include "transfer/csv_file.h"
#include "transfer/organisation.h"

namespace orvane::transfer {

struct ExportedFile {
  std::string name;   // "sections.csv"
  std::string bytes;  // the file as written
};

// One file's bytes from rows already read.
Status FileBytes(const FileSpec& layout, const std::vector<Row>& rows, Encoding encoding, std::string& bytes);

// Reads data source `dsn` and makes the four files. A failure carries the
// data layer's trail, or names the file and line a Shift_JIS export cannot
// hold.
Status ExportOrganisation(const std::string& dsn, Encoding encoding, std::vector<ExportedFile>& files);

}  // namespace orvane::transfer
