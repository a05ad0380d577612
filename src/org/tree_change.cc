#include "org/tree_change.h"

#include <climits>
#include <optional>
#include <utility>

#include "base/whole_number.h"
#include "data/schema.h"
#include "org/sec_tree.h"

namespace orvane::org {

using data::Quoted;
using data::Table;

Status ReadTreeVersion(data::Connection& conn, long long& version) {
  constexpr char kRoutine[] = "ReadTreeVersion";
  data::Sql sql;
  sql << "select VERSION from " << Table(data::kTreeVersionTable) << " where VERSION_ID = '1'";
  std::string text;
  if (Status s = data::SelectFirstValue(conn, sql, "VERSION", text); !s.ok()) return std::move(s).Prefixed(kRoutine);
  version = 0;
  if (text.empty()) return Status::Ok();
  std::optional<long long> read = ParseWholeNumber(text, 0, LLONG_MAX, {.minus_sign = false});
  if (!read) return Status::Failure("VERSION is not a whole number: " + text, Status::kDbFailed).Prefixed(kRoutine);
  version = *read;
  return Status::Ok();
}

namespace {

// Draws `table` after reading the version: a change committed in between
// makes the tree newer than its version, never older.
Status DrawWithVersion(data::Connection& conn, const std::string& table, ApplicationStore& app) {
  long long version = 0;
  if (Status s = ReadTreeVersion(conn, version); !s.ok()) return s;
  Array2D hier;
  if (Status s = Com_funGet_sec_info(conn, table, hier); !s.ok()) return s;
  app.SetSecHierarchical(std::move(hier), version);
  return Status::Ok();
}

// Raises the version by one; every tree change holds the section table's
// lock (or SQLite's write lock) already, so no two raise it at once.
Status RaiseTreeVersion(data::Connection& conn, long long& version) {
  if (Status s = ReadTreeVersion(conn, version); !s.ok()) return s;
  data::Sql sql;
  sql << "update " << Table(data::kTreeVersionTable) << " set VERSION = " << Quoted(std::to_string(version + 1))
      << " where VERSION_ID = '1'";
  return data::Com_funExecsql(conn, sql).Prefixed("RaiseTreeVersion");
}

}  // namespace

Status RefreshSecHierarchical(RequestContext& ctx, data::Connection& conn) {
  return DrawWithVersion(conn, ctx.SEC_MST, ctx.app());
}

bool CommitTreeChange(RequestContext& ctx, WriteFrame& frame, TreePatch* patch) {
  long long version = -1;
  if (!ctx.WorkTables() && !frame.Step("ERROR:SQLEXEC", RaiseTreeVersion(frame.conn(), version))) return false;
  if (patch) patch->version_before = version;
  return frame.Commit();
}

namespace {

// The held tree patched: only when it is the tree of the version the change
// started from, so that it and the change together are the committed table.
bool PatchSecHierarchical(ApplicationStore& app, const TreePatch& patch) {
  long long held = -1;
  std::shared_ptr<const SecTreeLines> lines = app.SecTreeLinesHeld(held);
  if (!lines || patch.version_before < 0 || held != patch.version_before) return false;
  SecTreeLines patched;
  if (!ApplyTreePatch(*lines, patch, patched)) return false;
  return app.ReplaceSecTreeLines(held, std::move(patched), held + 1);
}

}  // namespace

void FinishTreeChange(RequestContext& ctx, WriteFrame& frame, const TreePatch* patch) {
  if (frame.Enlisted() && !ctx.WorkTables()) {
    // Not committed yet: the drawn tree follows once the larger change is,
    // drawn once whatever its other steps did to the tree.
    if (!std::exchange(ctx.enlistment->tree_redraw_queued, true))
      frame.AfterCommit([](RequestContext& after, data::Connection& conn) {
        RefreshSecHierarchical(after, conn).IgnoreError();  // the next read draws it from the raised version
      });
    return frame.Finish();
  }
  // The code alone: the pages have never been shown the drawing's trail.
  if (!ctx.WorkTables() && !(patch && PatchSecHierarchical(ctx.app(), *patch)) &&
      frame.Failed(RefreshSecHierarchical(ctx, frame.conn())))
    return frame.Fail("ERROR:SETAPPLICATIONVALUE");
  frame.Finish();
}

Status LoadSecHierarchical(const ConfigFile& config, ApplicationStore& app) {
  std::string dsn;
  if (Status s = config.ComIniFileLoad("LOCAL_DB_DSN", dsn); !s.ok()) return s;
  data::Connection conn;
  if (Status s = data::Com_funDbOpen(dsn, "", "", conn); !s.ok()) return s;
  if (Status s = DrawWithVersion(conn, "T_SECTION", app); !s.ok()) return s;
  return data::Com_funDbClose(conn);
}

Status CurrentSecHierarchical(const ConfigFile& config, ApplicationStore& app, std::shared_ptr<const Array2D>& tree) {
  tree = nullptr;
  std::string dsn;
  if (Status s = config.ComIniFileLoad("LOCAL_DB_DSN", dsn); !s.ok()) return s;
  data::Connection conn;
  if (Status s = data::Com_funDbOpen(dsn, "", "", conn); !s.ok()) return s;
  long long version = 0;
  if (Status s = ReadTreeVersion(conn, version); !s.ok()) return s;
  if (version > app.SecHierarchicalVersion() || !app.SecHierarchical()) {
    Array2D hier;
    if (Status s = Com_funGet_sec_info(conn, "T_SECTION", hier); !s.ok()) return s;
    app.SetSecHierarchical(std::move(hier), version);
  }
  tree = app.SecHierarchical();
  return data::Com_funDbClose(conn);
}

}  // namespace orvane::org
