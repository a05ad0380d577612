// A two-dimensional text array addressed [column][row], the shape in which
// result sets are copied (Com_funRecodsetToArray) and the drawn section tree
// is kept. Every column has the same number of rows.
#pragma once

#include <string>
#include <vector>

namespace orvane {

using Array2D = std::vector<std::vector<std::string>>;

inline size_t ColumnCount(const Array2D& a) { return a.size(); }
inline size_t RowCount(const Array2D& a) { return a.empty() ? 0 : a.front().size(); }

}  // namespace orvane
