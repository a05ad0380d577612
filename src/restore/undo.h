// Undoing one change from its history entry: a rename (202), a move (212),
// an order change (210, 211), a membership added, changed or removed (207,
// 208, 209), a user's menu rights (213).
//
// Only when every row the change touched is still as it left it (the
// columns it wrote hold what it wrote, a row it deleted is still gone);
// otherwise refused, "ERROR:UNDOCHANGED", naming the first row that
// changed since, read under the undo's locks. The inverse runs as the
// requests themselves (the same operations, so the tree, the mail side and
// the list files follow), one or more of them enlisted in one transaction:
// all or nothing, one history entry "undo" whose UNDOES names the entry
// undone. Where the operations cannot put a value back exactly (a
// member's or a group's order number), the order among the siblings is
// put back.
#pragma once

#include "dispatch/request_context.h"
#include "restore/outcome.h"

namespace orvane::restore {

// `ctx`: a fresh request context whose session holds the administrator.
Outcome Undo(RequestContext& ctx, long entry_id);

}  // namespace orvane::restore
