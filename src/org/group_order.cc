#include "org/group_order.h"

#include <algorithm>
#include <cstdlib>
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

struct Place {
  std::string SEC_CD, SEC_SEQ;
};

}  // namespace

void ChangeGroupDisp(RequestContext& ctx, const std::string& move_sec_cd, const std::string& target_sec_cd,
                     const std::string& joi_sec) {
  WriteFrame frame(ctx, kTreeChangeRules);
  if (!frame.Start()) return;
  const auto& [date, time, user] = frame.stamp();

  // The orders are read inside the transaction that rewrites them.
  if (!frame.Open() || !frame.Begin(ctx.SEC_MST)) return;
  data::Connection& conn = frame.conn();
  data::ReadStep step = data::ReadStep::kSelect;
  // An unknown group answers "ERROR:DBFETCH": there is nothing to move.
  auto order_of = [&](const std::string& sec_cd, std::string& seq) {
    data::Sql sql;
    sql << "Select SEC_SEQ From " << Table(ctx.SEC_MST) << " Where SEC_CD = " << Quoted(sec_cd);
    return frame.ReadValue(sql, "SEC_SEQ", "ERROR:DBSELECT", "ERROR:DBFETCH", seq);
  };
  std::string a, b;
  if (!order_of(move_sec_cd, a) || !order_of(target_sec_cd, b)) return;
  const long order_a = std::atol(a.c_str()), order_b = std::atol(b.c_str());
  if (order_a == order_b) {
    // Reading the whole sibling list and rotating it would reshuffle it:
    // the same place is no move.
    if (frame.Commit()) frame.Finish();
    return;
  }
  const bool down = order_a < order_b;

  data::Sql range;
  range << "Select SEC_CD,SEC_SEQ From " << Table(ctx.SEC_MST);
  if (ctx.WorkTables()) {
    range << " Where UPD_KBN <> '1' and JOI_SEC = " << Quoted(joi_sec);
  } else {
    range << " Where JOI_SEC = " << Quoted(joi_sec);
  }
  range << " And SEC_SEQ Between " << Quoted(down ? a : b) << " and " << Quoted(down ? b : a) << " Order by SEC_SEQ";
  std::vector<Place> places;
  auto add = [&places](const std::vector<std::string>& v) {
    places.push_back({v[0], v[1]});
    return true;
  };
  if (!frame.Step(CodeOfReadStep(step), data::SelectRows(conn, range, {"SEC_CD", "SEC_SEQ"}, add, &step))) return;

  // Two children of the parent stand at the two ends of their range; a
  // group of another parent (or none) would take a sibling's order there.
  for (const std::string* code : {&move_sec_cd, &target_sec_cd}) {
    if (std::none_of(places.begin(), places.end(), [&](const Place& p) { return p.SEC_CD == *code; }))
      return frame.Fail(std::string("ERROR:SQLEXEC")
                            .append("ChangeGroupDisp\r\nnot a child of ")
                            .append(joi_sec)
                            .append(": ")
                            .append(*code));
  }

  // The codes turn by one place; every SEC_SEQ stays where it is.
  if (!places.empty()) {
    const size_t last = places.size() - 1;
    if (down) {
      for (size_t i = 0; i < last; ++i) places[i].SEC_CD = places[i + 1].SEC_CD;
      places[last].SEC_CD = move_sec_cd;
    } else {
      for (size_t i = last; i > 0; --i) places[i].SEC_CD = places[i - 1].SEC_CD;
      places[0].SEC_CD = move_sec_cd;
    }
  }
  TreePatch patch;
  patch.relaid.push_back(joi_sec);
  for (const Place& p : places) {
    patch.Set(p.SEC_CD, {{kSecSeq, p.SEC_SEQ}, {kUpdKbn, "2"}, {kUpdYmd, date}, {kUpdHms, time}, {kUpdUsr, user}});
    data::Sql sql;
    sql << "update " << Table(ctx.SEC_MST) << " set"
        << " SEC_SEQ = " << Quoted(p.SEC_SEQ) << " ,UPD_KBN = '2'"
        << " ,UPD_YMD = " << Quoted(date) << " ,UPD_HMS = " << Quoted(time) << " ,UPD_USR = " << Quoted(user)
        << " where SEC_CD = " << Quoted(p.SEC_CD);
    if (!frame.Step("ERROR:SQLEXEC", data::Com_funExecsql(conn, sql))) return;
  }

  if (!CommitTreeChange(ctx, frame, &patch)) return;
  FinishTreeChange(ctx, frame, &patch);
}

}  // namespace orvane::org
