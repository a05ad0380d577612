// The section paths and the readers the tree changes share: the path rules
// (SEC_TREE codes joined with "/", TREE_NM names joined with " / ") and the
// next code and order numbers (the commit and the drawn tree after a change:
// org/tree_change.h). Used by the group registration (201-203), the move (212) and the
// reorder (210). Every reader runs on the caller's open connection, inside
// its transaction, so what it reads is what the change writes over.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "data/db.h"
#include "dispatch/request_context.h"

namespace orvane::org {

inline constexpr std::string_view kTopSection = "0000";

// A name as it enters a path: every half-width blank removed when the name
// holds "/ " (so that the path still splits at "/ "); otherwise unchanged.
std::string PathName(std::string_view name);
// The TREE_NM of a section named `name` below `parent_code`: "/ " + name
// under the top section, else the parent's TREE_NM + " / " + name.
std::string ChildTreeNm(std::string_view parent_code, std::string_view parent_tree_nm, std::string_view name);
// The number of codes in a SEC_TREE ("0000/0001" has 2).
size_t Levels(std::string_view sec_tree);
// The names of `tree_nm` from position `level` on: split at "/ ", each
// trimmed, joined with " / ". Position 0 is the top section's.
std::string NamesFrom(std::string_view tree_nm, size_t level);
// "0000" + number, last `width` characters; empty or null text counts as 0.
// A text that is not a whole number fails.
Status NextNumber(std::string_view routine, const std::string& max_text, size_t width, std::string& next);

// A section's place in the tree as funGetUpperTree1 reads it.
struct UpperTree {
  std::string SEC_TREE, TREE_NM;  // empty when there is no such section
  bool exists = false;
};
// "select SEC_TREE,TREE_NM from SEC_MST where SEC_CD = '<code>'": the
// first row's two values.
Status funGetUpperTree1(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd, UpperTree& out,
                        data::ReadStep* failed_step = nullptr);
// The section's TREE_NM, empty when there is none.
Status Com043_funJoiTreeNm(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd,
                           std::string& tree_nm);

// One row of a subtree read.
struct TreeRow {
  std::string SEC_CD, SEC_TREE, SEC_NM, TREE_NM;
};
// The sections whose SEC_TREE begins with `prefix` (deleted ones left out
// on the work tables). `failed_step` says which read step failed.
Status ReadSubtree(const RequestContext& ctx, data::Connection& conn, const std::string& prefix,
                   std::vector<TreeRow>& rows, data::ReadStep* failed_step = nullptr);

// The next SEC_SEQ under `joi_sec`: max + 1 over every child, deleted ones
// included, three digits ("001" first; 1000 wraps to "000").
Status Group_funNextSortidx(const RequestContext& ctx, data::Connection& conn, const std::string& joi_sec,
                            std::string& seq, data::ReadStep* failed_step = nullptr);

}  // namespace orvane::org
