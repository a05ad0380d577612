// The drawn tree patched by a tree change instead of drawn again from the
// whole section table: the change says which sections it added, removed or
// rewrote (from the rows it read and wrote inside its transaction) and whose
// children changed in number or order; the held tree's lines are changed
// for those alone. The result is the text a full drawing of the committed
// table gives; where the held tree does not allow telling that (a version
// not drawn from, sections without a drawn parent, sibling orders that a
// full drawing could put either way, paths that disagree with the nesting),
// the patch declines and the tree is drawn in full.
#pragma once

#include <array>
#include <string>
#include <vector>

#include "dispatch/application_store.h"

namespace orvane::org {

// Positions of the section values in a drawn line (sec_tree.h).
enum SecColumn : size_t {
  kSecCd = 0,
  kSecNm = 1,
  kDspNm = 2,
  kJoiSec = 3,
  kSecSeq = 4,
  kSecTree = 5,
  kUpdKbn = 6,
  kUpdYmd = 7,
  kUpdHms = 8,
  kUpdUsr = 9,
};

struct TreePatch {
  // A section's values after the change: those named in `columns` are set.
  struct Values {
    std::string sec_cd;
    std::vector<std::pair<SecColumn, std::string>> columns;
  };
  // Sections whose values changed (an added one lists all ten).
  std::vector<Values> changed;
  std::vector<std::string> added;    // codes of `changed` that are new lines
  std::vector<std::string> removed;  // codes of deleted sections (leaves)
  // A section that changes parent: the parent it leaves (read from the held
  // tree) is relaid before those of `relaid`.
  std::string moved;
  // Parents whose children changed in number or order, the one a section
  // leaves before the one it joins ("9999" for the top level).
  std::vector<std::string> relaid;
  // The tree version the change read inside its transaction, before raising
  // it; -1 while not known.
  long long version_before = -1;

  void Set(const std::string& sec_cd, std::vector<std::pair<SecColumn, std::string>> columns) {
    changed.push_back({sec_cd, std::move(columns)});
  }
};

// The lines of `base` (the tree of the version before the change) with
// `patch` applied into `out`; false when the patch declines (the caller
// draws the tree in full).
bool ApplyTreePatch(const SecTreeLines& base, const TreePatch& patch, SecTreeLines& out);

}  // namespace orvane::org
