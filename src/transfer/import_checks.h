// The import's checks of single values and of references between rows,
// and the organisation as an import would leave it (WorkState). Used by
// import_plan only.
#pragma once

#include <map>
#include <string>
#include <utility>
#include <vector>

#include "transfer/import_plan.h"

namespace orvane::transfer {

// The rows of each file by key, changed line by line as a plan reads them.
class WorkState {
 public:
  explicit WorkState(const Organisation& current);
  std::map<std::string, Row>& Of(FileKind kind) { return rows_[static_cast<int>(kind)]; }
  const std::map<std::string, Row>& Of(FileKind kind) const { return rows_[static_cast<int>(kind)]; }
  // Removes a row with what goes with it, as the deletes do: a user's
  // memberships and rights, a section's memberships.
  void Remove(FileKind kind, const std::string& key);
  Organisation ToOrganisation() const;

 private:
  std::map<std::string, Row> rows_[kFileKinds];
};

// The values one line gives (`given`: each column with its text), checked
// by their kinds and shapes; `row` is the line's row after them, and gets
// the written forms ("7" as order "007", an empty end as "99999999").
// Empty when they pass, else "<column>: <reason>".
// `before` is the stored row, empty when adding. A department code is held
// to no length: files give back what exports wrote, whatever its age; only
// two sections holding one code are refused (CheckReferences).
std::string CheckGivenValues(const FileSpec& layout,
                             const std::vector<std::pair<const ColumnSpec*, std::string>>& given, const Row& before,
                             Row& row);

// The checks against the organisation as the import leaves it (parents,
// cycles, department codes, users and sections of memberships and rights,
// overlapping primary memberships, sections deleted with children). A line
// that fails becomes an error. New sections and memberships without an
// order get the next one among their siblings.
void CheckReferences(WorkState& state, std::vector<PlanLine>& lines);

}  // namespace orvane::transfer
