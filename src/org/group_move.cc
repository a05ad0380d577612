#include "org/group_move.h"

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
  std::vector<data::Sql> updates;
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
    data::Sql& sql = updates.emplace_back();
    sql << "update " << Table(ctx.SEC_MST) << " set";
    if (moved)
      sql << " JOI_SEC = " << Quoted(new_joi_sec) << " ,"
          << " SEC_SEQ = " << Quoted(seq) << " ,";
    sql << " SEC_TREE = " << Quoted(row.SEC_TREE) << " ,TREE_NM = " << Quoted(row.TREE_NM) << " ,UPD_KBN = '2'"
        << " ,UPD_YMD = " << Quoted(date) << " ,UPD_HMS = " << Quoted(time) << " ,UPD_USR = " << Quoted(user)
        << " where SEC_CD = " << Quoted(row.SEC_CD);
  }
  for (const data::Sql& sql : updates)
    if (!frame.Step("ERROR:SQLEXEC", data::Com_funExecsql(conn, sql))) return;

  if (!CommitTreeChange(ctx, frame, &patch)) return;
  FinishTreeChange(ctx, frame, &patch);
}

}  // namespace orvane::org
