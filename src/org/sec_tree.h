// The drawn section tree ("App_A_strSec_hierarchical"): every section of the
// section table in tree order with the glyphs that indent it on the pages.
// Built by the group registration, move and order operations after a change
// of the live tables; they keep the result in the application store.
//
// Hierarchical array, [column][row], one row per section:
//   0..9  sec_cd, sec_nm, dsp_nm, joi_sec, sec_seq, sec_tree, upd_kbn,
//         upd_ymd, upd_hms, upd_usr (the section array's columns)
//   10    "1" when the section has children, else "0"
//   11    the prefix: one glyph per level from the top down to the section,
//         joined with 0x1C: "├" has a later sibling, "└" is the last one; above
//         it "｜" where that ancestor has a later sibling, "　" where not.
// Rows of sections whose parent is not in the tree are not drawn: those rows
// of the array stay empty at the end. Deleted rows are drawn.
#pragma once

#include <string>
#include <vector>

#include "base/array2d.h"
#include "data/db.h"
#include "data/sql.h"

namespace orvane::org {

inline constexpr size_t kSectionColumns = 10;  // sec_cd .. upd_usr
inline constexpr size_t kHasChildrenColumn = 10;
inline constexpr size_t kPrefixColumn = 11;
inline constexpr char kLevelSeparator = '\x1C';

// Reads the section table `sec_mst` on the open connection and draws the
// whole tree into `hier`. A failure (code 1) carries the failing step's
// text followed by "Com_funGet_sec_info" and CR LF.
Status Com_funGet_sec_info(data::Connection& conn, const std::string& sec_mst, Array2D& hier);

// Draws the sections below `joi_sec` (and all their descendants) into `hier`
// from row `row` on, advancing `row` by one per section drawn. `sections` is
// the section array ordered by joi_sec, sec_seq; `parents` the codes that
// have children; `prefix` the glyphs of the levels above. Returns "" or the
// error trail. Cost is linear in the number of sections: the rows are
// indexed by parent once per call.
std::string Com_funGet_sec_hierarchical(const Array2D& sections, const std::vector<std::string>& parents,
                                        const std::string& joi_sec, std::vector<std::string>& prefix, Array2D& hier,
                                        int& row);

// The two statements Com_funGet_sec_info runs.
data::Sql SectionArraySql(const std::string& sec_mst);
data::Sql ParentListSql(const std::string& sec_mst);

// The drawn tree as the pages read it: one row a line ended by CR LF, its
// twelve columns joined by TAB, in tree order.
std::string DrawnTreeText(const Array2D& tree);

}  // namespace orvane::org
