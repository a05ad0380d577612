#include "org/group_move.h"

#include <algorithm>
#include <span>
#include <vector>

#include "base/clock.h"
#include "dispatch/read_step_code.h"
#include "dispatch/write_frame.h"
#include "org/group_paths.h"
#include "org/tree_change.h"

namespace orvane::org {
namespace {

using data::Quoted;
using data::Table;

// A descendant's new place: its paths change, nothing else of its own.
struct NewPath {
  std::string SEC_CD, SEC_TREE, TREE_NM;
};

// Rows a statement rewrites: three values each, well under the bound
// values a statement may carry on every database (2,100 on SQL Server).
constexpr size_t kPathsPerStatement = 500;

// One update of `paths`, joined by code to a list of values: a subtree of
// thousands costs a few statements instead of one round trip a row.
data::Sql PathsUpdate(const RequestContext& ctx, const data::Connection& conn, std::span<const NewPath> paths,
                      const WriteFrame::Stamp& stamp) {
  data::Sql sql;
  sql << "update " << Table(ctx.SEC_MST) << " set SEC_TREE = V.column2 ,TREE_NM = V.column3 ,UPD_KBN = '2'"
      << " ,UPD_YMD = " << Quoted(stamp.ymd) << " ,UPD_HMS = " << Quoted(stamp.hms)
      << " ,UPD_USR = " << Quoted(stamp.usr) << " from (values ";
  for (size_t i = 0; i < paths.size(); ++i) {
    if (i > 0) sql << ",";
    sql << "(" << Quoted(paths[i].SEC_CD) << "," << Quoted(paths[i].SEC_TREE) << "," << Quoted(paths[i].TREE_NM) << ")";
  }
  // SQLite and PostgreSQL name a list's columns column1, column2, ...; SQL
  // Server wants them named.
  sql << (conn.dialect().kind() == data::Dialect::Kind::kSqlServer ? data::SqlText(") as V (column1, column2, column3)")
                                                                   : data::SqlText(") as V"));
  sql << " where " << Table(ctx.SEC_MST) << ".SEC_CD = V.column1";
  return sql;
}

}  // namespace

void ChangeGroupTree(RequestContext& ctx, const std::string& move_sec_cd, const std::string& new_joi_sec) {
  WriteFrame frame(ctx, kTreeChangeRules);
  if (!frame.Start()) return;
  const auto& [date, time, user] = frame.stamp();

  // The paths that decide the new ones are read inside the transaction,
  // under its write lock, so no other change can slip in between.
  if (!frame.Open() || !frame.Begin(ctx.SEC_MST)) return;
  data::Connection& conn = frame.conn();
  data::ReadStep step = data::ReadStep::kSelect;
  auto read = [&](const Status& s) { return frame.Step(CodeOfReadStep(step), s); };
  UpperTree moved, parent;
  if (!read(funGetUpperTree1(ctx, conn, move_sec_cd, moved, &step)) ||
      !read(funGetUpperTree1(ctx, conn, new_joi_sec, parent, &step)))
    return;
  const std::string &moved_tree = moved.SEC_TREE, &parent_tree = parent.SEC_TREE;
  std::string seq;
  // A cycle, or a Like '%' over the whole table: refused.
  bool into_itself = parent_tree == moved_tree || parent_tree.starts_with(moved_tree + "/");
  if (moved_tree.empty() || parent_tree.empty() || into_itself) return frame.Fail("ERROR:ILLEGALTREE");
  std::vector<TreeRow> rows;
  if (!read(Group_funNextSortidx(ctx, conn, new_joi_sec, seq, &step)) ||
      !read(ReadSubtree(ctx, conn, moved_tree, rows, &step)))
    return;

  // Every new path first; nothing is written before all are known.
  const size_t levels_above = Levels(moved_tree) - 1;
  const std::string new_tree = parent_tree + "/" + move_sec_cd;
  std::vector<data::Sql> moved_updates;  // one, unless two sections share its path
  std::vector<NewPath> descendants;
  TreePatch patch;
  patch.moved = move_sec_cd;
  patch.relaid.push_back(new_joi_sec);
  for (TreeRow& row : rows) {
    bool moved = row.SEC_TREE == moved_tree;
    // "Like" would also match a longer code that begins like the moved one.
    if (!moved && !row.SEC_TREE.starts_with(moved_tree + "/")) continue;
    std::string names = moved ? PathName(row.SEC_NM) : NamesFrom(row.TREE_NM, levels_above);
    row.SEC_TREE = new_tree + row.SEC_TREE.substr(moved_tree.size());
    row.TREE_NM = ChildTreeNm(new_joi_sec, parent.TREE_NM, names);
    std::vector<std::pair<SecColumn, std::string>> values = {
        {kSecTree, row.SEC_TREE}, {kUpdKbn, "2"}, {kUpdYmd, date}, {kUpdHms, time}, {kUpdUsr, user}};
    if (moved) values.insert(values.end(), {{kJoiSec, new_joi_sec}, {kSecSeq, seq}});
    patch.Set(row.SEC_CD, std::move(values));
    if (!moved) {
      descendants.push_back({row.SEC_CD, row.SEC_TREE, row.TREE_NM});
      continue;
    }
    data::Sql& sql = moved_updates.emplace_back();
    sql << "update " << Table(ctx.SEC_MST) << " set"
        << " JOI_SEC = " << Quoted(new_joi_sec) << " ,"
        << " SEC_SEQ = " << Quoted(seq) << " ,"
        << " SEC_TREE = " << Quoted(row.SEC_TREE) << " ,TREE_NM = " << Quoted(row.TREE_NM) << " ,UPD_KBN = '2'"
        << " ,UPD_YMD = " << Quoted(date) << " ,UPD_HMS = " << Quoted(time) << " ,UPD_USR = " << Quoted(user)
        << " where SEC_CD = " << Quoted(row.SEC_CD);
  }
  // The moved group first, then its descendants' paths a block at a time.
  for (const data::Sql& sql : moved_updates)
    if (!frame.Step("ERROR:SQLEXEC", data::Com_funExecsql(conn, sql))) return;
  for (size_t i = 0; i < descendants.size(); i += kPathsPerStatement) {
    std::span<const NewPath> block(descendants.begin() + i, std::min(descendants.size(), i + kPathsPerStatement) - i);
    if (!frame.Step("ERROR:SQLEXEC", data::Com_funExecsql(conn, PathsUpdate(ctx, conn, block, frame.stamp())))) return;
  }

  if (!CommitTreeChange(ctx, frame, &patch)) return;
  FinishTreeChange(ctx, frame, &patch);
}

}  // namespace orvane::org
