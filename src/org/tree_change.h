// Every tree change's commit and end, and the drawn tree the application
// store holds: the tree version that tells the instances sharing a database
// that the tree changed, its rebuild or patch after a change, its load at
// start, and the check before an answer shows it.
#pragma once

#include <memory>

#include "base/array2d.h"
#include "base/status.h"
#include "data/db.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "dispatch/request_context.h"
#include "dispatch/write_frame.h"
#include "org/tree_patch.h"

namespace orvane::org {

// The move and the reorder answer their codes alone; a close that fails
// after another failure adds "ERROR:DBCLOSE" behind it, as on the read side.
inline constexpr WriteRules kTreeChangeRules = {.close_failure = WriteRules::CloseFailure::kAfter,
                                                .frame_trail = false,
                                                .step_trail = false,
                                                .rollback_failure = {}};

// The version of the live tree (the one row of ORVANE_TREE_VERSION, read by
// its key); 0 when the row is missing.
Status ReadTreeVersion(data::Connection& conn, long long& version);

// Draws the tree again from the request's section table and keeps it in the
// application store as "App_A_strSec_hierarchical", with the tree version
// read just before it (so the held tree is never older than its version).
Status RefreshSecHierarchical(RequestContext& ctx, data::Connection& conn);

// The commit of every tree change: on the live tables the tree version is
// raised first, inside the change's transaction ("ERROR:SQLEXEC"), so
// every instance sharing the database learns of the change with it. False
// when the request has been answered.
// With `patch`, the version read before raising it is kept there.
bool CommitTreeChange(RequestContext& ctx, WriteFrame& frame, TreePatch* patch = nullptr);

// The end of every tree change after its commit: on the live tables the
// held drawn tree is patched with `patch` when it is the tree of the version
// the change started from, else drawn again in full
// ("ERROR:SETAPPLICATIONVALUE"); then the connection is closed and "OK"
// answered.
void FinishTreeChange(RequestContext& ctx, WriteFrame& frame, const TreePatch* patch = nullptr);

// At start: the drawn tree of the live section table of LOCAL_DB_DSN into
// `app`, on a connection of its own.
Status LoadSecHierarchical(const ConfigFile& config, ApplicationStore& app);

// Before an answer shows the drawn tree: one keyed select of the tree
// version; when the database's is newer than the held tree's (another
// instance changed the tree), the tree is drawn again. `tree` is the one to
// answer (null when none could be drawn).
Status CurrentSecHierarchical(const ConfigFile& config, ApplicationStore& app, std::shared_ptr<const Array2D>& tree);

}  // namespace orvane::org
