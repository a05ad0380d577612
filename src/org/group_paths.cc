#include "org/group_paths.h"

#include <climits>
#include <optional>

#include "base/text.h"
#include "base/whole_number.h"
#include "data/schema.h"
#include "org/sec_tree.h"

namespace orvane::org {

using data::Quoted;
using data::Table;

std::string PathName(std::string_view name) {
  return name.find("/ ") == std::string_view::npos ? std::string(name) : text::RemoveAll(name, ' ');
}

std::string ChildTreeNm(std::string_view parent_code, std::string_view parent_tree_nm, std::string_view name) {
  if (parent_code == kTopSection) return "/ " + std::string(name);
  return std::string(parent_tree_nm) + " / " + std::string(name);
}

size_t Levels(std::string_view sec_tree) { return text::Split(sec_tree, "/").size(); }

std::string NamesFrom(std::string_view tree_nm, size_t level) {
  std::vector<std::string> parts = text::Split(tree_nm, "/ ");
  std::vector<std::string> tail;
  for (size_t i = level; i < parts.size(); ++i) tail.push_back(text::Trim(parts[i]));
  return text::Join(tail, " / ");
}

Status NextNumber(std::string_view routine, const std::string& max_text, size_t width, std::string& next) {
  long long number = 0;  // no group yet: the first is 1
  if (!text::Trim(max_text).empty()) {
    std::optional<long long> max = ParseWholeNumber(max_text, LONG_MIN, LONG_MAX - 1, {.blanks_around = true});
    if (!max) return Status::Failure("MAX_IDX is not a whole number: " + max_text, Status::kDbFailed).Prefixed(routine);
    number = *max;
  }
  next = text::Right(std::string(width, '0') + std::to_string(number + 1), width);
  return Status::Ok();
}

Status funGetUpperTree1(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd,
                        std::string& sec_tree, std::string& tree_nm, data::ReadStep* failed_step, bool* exists) {
  data::Sql sql;
  sql << "select SEC_TREE,TREE_NM"
      << " from " << Table(ctx.SEC_MST) << " where SEC_CD = " << Quoted(sec_cd);
  std::vector<std::string> row = {"", ""};
  bool found = false;
  Status s = data::SelectFirstRow(conn, sql, {"SEC_TREE", "TREE_NM"}, row, found, failed_step);
  sec_tree = row[0];
  tree_nm = row[1];
  if (exists) *exists = found;
  return std::move(s).Prefixed("funGetUpperTree1");
}

Status Com043_funJoiTreeNm(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd,
                           std::string& tree_nm) {
  data::Sql sql;
  sql << "select TREE_NM"
      << " from " << Table(ctx.SEC_MST) << " where (SEC_CD = " << Quoted(sec_cd) << ")";
  return data::SelectFirstValue(conn, sql, "TREE_NM", tree_nm).Prefixed("Com043_funJoiTreeNm");
}

// The name the subtree read carries in the system's trails.
constexpr char kSubtreeRoutine[] = "Com043_funUpdAdmRecord";

Status ReadSubtree(const RequestContext& ctx, data::Connection& conn, const std::string& prefix,
                   std::vector<TreeRow>& rows, data::ReadStep* failed_step) {
  data::Sql sql;
  sql << "Select SEC_CD,SEC_TREE,SEC_NM,TREE_NM From " << Table(ctx.SEC_MST);
  if (ctx.WorkTables()) {
    sql << " Where UPD_KBN <> '1' and SEC_TREE Like " << Quoted(prefix + "%");
  } else {
    sql << " Where SEC_TREE Like " << Quoted(prefix + "%");
  }
  rows.clear();
  auto add = [&rows](const std::vector<std::string>& v) {
    rows.push_back({v[0], v[1], v[2], v[3]});
    return true;
  };
  return data::SelectRows(conn, sql, {"SEC_CD", "SEC_TREE", "SEC_NM", "TREE_NM"}, add, failed_step)
      .Prefixed(kSubtreeRoutine);
}

Status Group_funNextSortidx(const RequestContext& ctx, data::Connection& conn, const std::string& joi_sec,
                            std::string& seq, data::ReadStep* failed_step) {
  data::Sql sql;
  sql << "select max(SEC_SEQ) as MAX_IDX"
      << " from " << Table(ctx.SEC_MST) << " where JOI_SEC = " << Quoted(joi_sec);
  std::string max;
  if (Status s = data::SelectFirstValue(conn, sql, "MAX_IDX", max, nullptr, failed_step); !s.ok())
    return std::move(s).Prefixed("Group_funNextSortidx");
  return NextNumber("Group_funNextSortidx", max, 3, seq);
}

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
