#include "members/member_order.h"

#include <cstdlib>
#include <vector>

#include "base/clock.h"
#include "dispatch/read_step_code.h"
#include "dispatch/write_frame.h"

namespace orvane::members {
namespace {

using data::Quoted;
using data::Table;

// Codes carry the trail; a close that fails after another failure adds
// "ERROR:DBCLOSE" behind it.
constexpr WriteRules kOrderRules = {
    .close_failure = WriteRules::CloseFailure::kAfter, .frame_trail = true, .step_trail = true, .rollback_failure = {}};

// The select's answer keeps the blank the pages have always received.
constexpr std::string_view kSelectFailed = "ERROR:DBSELECT ";

struct Member {
  std::string USER_ID, USER_SEQ;
};

}  // namespace

void ChangeUserDisp(RequestContext& ctx, const std::string& target_user_id, const std::string& moved_user_id,
                    const std::string& sec_cd) {
  WriteFrame frame(ctx, kOrderRules);
  if (!frame.Start()) return;
  const auto& [date, time, user] = frame.stamp();

  // The positions are read inside the transaction that rewrites them.
  if (!frame.Open() || !frame.Begin()) return;
  data::Connection& conn = frame.conn();
  data::ReadStep step = data::ReadStep::kSelect;
  auto position_of = [&](const std::string& user_id, std::string_view fetch_failed, std::string& seq) {
    data::Sql sql;
    sql << "Select USER_SEQ From " << Table(ctx.SEC_MEM) << " Where SEC_CD = " << Quoted(sec_cd)
        << " And USER_ID = " << Quoted(user_id);
    // Not a member of this section answers as a failed fetch.
    return frame.ReadValue(sql, "USER_SEQ", kSelectFailed, fetch_failed, seq);
  };
  std::string a, b;
  if (!position_of(target_user_id, "ERROR:DBFETCH USER1", a) || !position_of(moved_user_id, "ERROR:DBFETCH USER2", b))
    return;
  const long target = std::atol(a.c_str()), moved = std::atol(b.c_str());
  if (target == moved) {
    // Without a range the whole section would be reshuffled: no move.
    if (frame.Commit()) frame.Finish();
    return;
  }

  data::Sql range;
  range << "Select USER_ID,USER_SEQ From " << Table(ctx.SEC_MEM) << " Where SEC_CD = " << Quoted(sec_cd)
        << " And USER_SEQ Between " << Quoted(target < moved ? a : b) << " And " << Quoted(target < moved ? b : a)
        << " Order by USER_SEQ";
  std::vector<Member> rows;
  auto add = [&rows](const std::vector<std::string>& v) {
    rows.push_back({v[0], v[1]});
    return true;
  };
  if (!frame.Step(CodeOfReadStep(step, {.select = kSelectFailed}),
                  data::SelectRows(conn, range, {"USER_ID", "USER_SEQ"}, add, &step)))
    return;

  if (rows.size() > 1) {
    const size_t n = rows.size() - 1;
    if (target < moved) {
      // The moved member (last) takes the target's place; the rest move down.
      std::string first = rows[0].USER_SEQ;
      for (size_t i = 0; i < n; ++i) rows[i].USER_SEQ = rows[i + 1].USER_SEQ;
      rows[n].USER_SEQ = first;
    } else {
      // The moved member (first) ends just above the target, which keeps its place.
      std::string above_target = rows[n - 1].USER_SEQ;
      for (size_t i = n - 1; i >= 1; --i) rows[i].USER_SEQ = rows[i - 1].USER_SEQ;
      rows[0].USER_SEQ = above_target;
    }
  }
  for (const Member& m : rows) {
    data::Sql sql;
    sql << "update " << Table(ctx.SEC_MEM) << " set"
        << " USER_SEQ = " << Quoted(m.USER_SEQ) << " ,UPD_KBN = '2'"
        << " ,UPD_YMD = " << Quoted(date) << " ,UPD_HMS = " << Quoted(time) << " ,UPD_USR = " << Quoted(user)
        << " where (USER_ID = " << Quoted(m.USER_ID) << ")"
        << " and (SEC_CD = " << Quoted(sec_cd) << ")";
    if (!frame.Step("ERROR:SQLEXEC", data::Com_funExecsql(conn, sql))) return;
  }
  if (frame.Commit()) frame.Finish();
}

}  // namespace orvane::members
