#include "transfer/export.h"

namespace orvane::transfer {

Status FileBytes(const FileSpec& layout, const std::vector<Row>& rows, Encoding encoding, std::string& bytes) {
  std::vector<std::vector<std::string>> lines;
  lines.reserve(rows.size() + 1);
  std::vector<std::string>& header = lines.emplace_back();
  for (std::string_view name : layout.ExportedNames()) header.emplace_back(name);
  lines.insert(lines.end(), rows.begin(), rows.end());
  FileFault fault;
  if (WriteCsv(lines, encoding, bytes, fault)) return Status::Ok();
  return Status::Refused(std::string(layout.file_name) + " line " + std::to_string(fault.line) + ": " + fault.message);
}

Status ExportOrganisation(const std::string& dsn, Encoding encoding, std::vector<ExportedFile>& files) {
  files.clear();
  data::Connection conn;
  if (Status s = data::Com_funDbOpen(dsn, "", "", conn); !s.ok()) return s;
  Organisation org;
  // One transaction: the four files show one moment of the data.
  Status read = data::Com_funBeginTrans(conn);
  if (read.ok()) read = ReadOrganisation(conn, org);
  if (conn.IsOpen()) {
    data::Com_funRollbackTrans(conn).IgnoreError();  // nothing was written
    data::Com_funDbClose(conn).IgnoreError();        // the rows are read
  }
  if (!read.ok()) return read;
  for (const FileSpec& layout : FileSpecs()) {
    ExportedFile& f = files.emplace_back();
    f.name = layout.file_name;
    if (Status s = FileBytes(layout, org.Of(layout.kind), encoding, f.bytes); !s.ok()) return s;
  }
  return Status::Ok();
}

}  // namespace orvane::transfer
