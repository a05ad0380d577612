#include "members/membership.h"

#include <climits>
#include <limits>
#include <optional>

#include "accounts/section_mail_list.h"
#include "base/clock.h"
#include "base/text.h"
#include "base/text_checks.h"
#include "base/whole_number.h"
#include "dispatch/query_frame.h"
#include "dispatch/write_frame.h"

namespace orvane::members {
namespace {

using data::Quoted;
using data::Table;

// Every answer carries the error trail behind its code; a close that fails
// after another failure writes "ERROR:DBCLOSE" first.
constexpr WriteRules kMemberRules = {.close_failure = WriteRules::CloseFailure::kBefore,
                                     .frame_trail = true,
                                     .step_trail = true,
                                     .rollback_failure = {}};

data::Sql NextSortidxSql(const RequestContext& ctx, const std::string& sec_cd) {
  data::Sql sql;
  sql << "select max(USER_SEQ) as MAX_IDX"
      << " from " << Table(ctx.SEC_MEM) << " where SEC_CD = " << Quoted(sec_cd);
  return sql;
}

// MAX_IDX + 1 as the host's 16-bit integer, three digits kept: an empty
// maximum counts as 0, one above 32766 overflows.
Status NextPosition(const std::string& max, std::string& next_seq) {
  long long value = 0;
  if (!text::Trim(max).empty()) {
    std::optional<long long> read =
        ParseWholeNumber(max, INT_MIN, std::numeric_limits<short>::max() - 1, {.blanks_around = true});
    if (!read) return Status::Failure("MAX_IDX " + max + " does not fit a 16-bit integer plus 1", Status::kDbFailed);
    value = *read;
  }
  next_seq = text::Right("000" + std::to_string(value + 1), 3);
  return Status::Ok();
}

// The overlap of another primary membership with [start, end], both ends
// inclusive; dates compare as text.
void OverlappingPrimaries(data::Sql& sql, const RequestContext& ctx, const std::string& user_id,
                          const std::string& start, const std::string& end) {
  sql << "select count(SEC_CD) as CNT"
      << " from " << Table(ctx.SEC_MEM) << " where (USER_ID = " << Quoted(user_id) << ")"
      << " and (SEC_KBN = '1')"
      << " and (ST_YMD <= " << Quoted(end) << ")"
      << " and (ED_YMD >= " << Quoted(start) << ")";
}

// Fails with "no such <what>: <value>" when `sql` (a select of `column`)
// finds no row.
Status MustExist(data::Connection& conn, const data::Sql& sql, const std::string& column, std::string_view what,
                 const std::string& value) {
  std::string ignored;
  bool found = false;
  if (Status s = data::SelectFirstValue(conn, sql, column, ignored, &found); !s.ok()) return s;
  if (found) return Status::Ok();
  return Status::Failure(std::string("no such ").append(what).append(": ").append(value), Status::kDbFailed);
}

}  // namespace

void NoteMembersLoaded(RequestContext& ctx) {
  std::string date, time;
  Com_subGetDate(ctx.clock(), date, time);
  ctx.session().Set(kMembersLoadedYmd, date);
  ctx.session().Set(kMembersLoadedHms, time);
}

Status funDelCirMember(const RequestContext& ctx, data::Connection& conn, const MemberParams& p) {
  data::Sql sql;
  sql << "delete from " << Table(ctx.SEC_MEM) << " where (SEC_CD = " << Quoted(p[0]) << ")"
      << " and (USER_ID = " << Quoted(p[1]) << ")";
  return data::Com_funExecsql(conn, sql);
}

Status funUpdAdmMember(const RequestContext& ctx, data::Connection& conn, const MemberParams& p,
                       bool& already_primary) {
  data::Sql overlap;
  OverlappingPrimaries(overlap, ctx, p[1], p[3], p[4]);
  overlap << " and (SEC_CD <> " << Quoted(p[0]) << ")";
  long count = 0;
  if (Status s = data::SelectCount(conn, overlap, count); !s.ok()) return s;
  already_primary = count > 0 && p[2] == "1";
  if (already_primary) return Status::Ok();
  // The row keeps its USER_SEQ.
  data::Sql sql;
  sql << "update " << Table(ctx.SEC_MEM) << " set"
      << " SEC_KBN = " << Quoted(p[2]) << " ,ST_YMD = " << Quoted(p[3]) << " ,ED_YMD = " << Quoted(p[4])
      << " ,POST_CD = " << Quoted(p[5]) << " ,UPD_KBN = '2'"
      << " ,UPD_YMD = " << Quoted(p[6]) << " ,UPD_HMS = " << Quoted(p[7]) << " ,UPD_USR = " << Quoted(p[8])
      << " where (SEC_CD = " << Quoted(p[0]) << ")"
      << " and (USER_ID = " << Quoted(p[1]) << ")";
  return data::Com_funExecsql(conn, sql);
}

Status funInsCirMember(const RequestContext& ctx, data::Connection& conn, const MemberParams& p,
                       bool& already_primary) {
  data::Sql present;
  present << "select count(SEC_CD) as CNT"
          << " from " << Table(ctx.SEC_MEM) << " where (SEC_CD = " << Quoted(p[0]) << ")"
          << " and (USER_ID = " << Quoted(p[1]) << ")";
  data::Sql overlap;
  OverlappingPrimaries(overlap, ctx, p[1], p[4], p[5]);
  long members = 0, primaries = 0;
  if (Status s = data::SelectCount(conn, present, members); !s.ok()) return s;
  if (Status s = data::SelectCount(conn, overlap, primaries); !s.ok()) return s;
  already_primary = p[2] == "1" && primaries > 0;
  if (already_primary) return Status::Ok();
  data::Sql sql;
  if (members > 0) {
    // Adding a member again only sets its kind; position, period, post and
    // stamps stay.
    sql << "update " << Table(ctx.SEC_MEM) << " set"
        << " SEC_KBN = " << Quoted(p[2]) << " where (SEC_CD = " << Quoted(p[0]) << ")"
        << " and (USER_ID = " << Quoted(p[1]) << ")";
  } else {
    data::Sql section, user;
    section << "select SEC_CD from " << Table(ctx.SEC_MST) << " where SEC_CD = " << Quoted(p[0]);
    user << "select USER_ID from " << Table(ctx.USR_MST) << " where USER_ID = " << Quoted(p[1]);
    if (Status s = MustExist(conn, section, "SEC_CD", "section", p[0]); !s.ok()) return s;
    if (Status s = MustExist(conn, user, "USER_ID", "user", p[1]); !s.ok()) return s;
    sql = InsertCirMemberSql(ctx, std::span(&p, 1));
  }
  return data::Com_funExecsql(conn, sql);
}

data::Sql InsertCirMemberSql(const RequestContext& ctx, std::span<const MemberParams> rows) {
  // The blanks inside the column list and before the first value are the
  // statement's own.
  data::Sql sql;
  sql << "insert into " << Table(ctx.SEC_MEM) << " (SEC_CD"
      << " ,USER_ID"
      << " ,SEC_KBN"
      << " ,USER_SEQ"
      << " ,ST_YMD "
      << " ,ED_YMD"
      << " ,UPD_KBN "
      << " ,UPD_YMD"
      << " ,UPD_HMS"
      << " ,UPD_USR )"
      << " values (";
  for (size_t i = 0; i < rows.size(); ++i) {
    const MemberParams& p = rows[i];
    if (i > 0) sql << " ,(";
    sql << "  " << Quoted(p[0]) << " ," << Quoted(p[1]) << " ," << Quoted(p[2]) << " ," << Quoted(p[3]) << " ,"
        << Quoted(p[4]) << " ," << Quoted(p[5]) << " ,'3'"
        << " ," << Quoted(p[7]) << " ," << Quoted(p[8]) << " ," << Quoted(p[9]) << ")";
  }
  return sql;
}

Status funNextSortidx(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd,
                      std::string& next_seq) {
  std::string max;
  if (Status s = data::SelectFirstValue(conn, NextSortidxSql(ctx, sec_cd), "MAX_IDX", max); !s.ok()) return s;
  return NextPosition(max, next_seq);
}

Status funNextSortidxMember(RequestContext& ctx, const std::string& sec_cd, std::string& next_seq) {
  QueryFrame frame(ctx);
  data::Recordset rs;
  std::vector<std::string> values;
  bool eof = false;
  if (!frame.Open() || !frame.Select(NextSortidxSql(ctx, sec_cd), rs) || !frame.Fetch(rs, {"MAX_IDX"}, values, eof) ||
      !frame.CloseRecordset(rs))
    return Status::Failure("funNextSortidxMember");
  Status next = NextPosition(eof ? std::string() : values[0], next_seq);
  return frame.Close() ? next : Status::Failure("funNextSortidxMember");
}

Status funUpdSortidx(const RequestContext& ctx, data::Connection& conn, const std::string& user_id,
                     const std::string& sec_cd, const std::string& number) {
  data::Sql current;
  current << "select USER_SEQ"
          << " from " << Table(ctx.SEC_MEM) << " where (USER_ID = " << Quoted(user_id) << ")"
          << " and (SEC_CD = " << Quoted(sec_cd) << ")";
  if (Status s = data::SelectRows(conn, current, {"USER_SEQ"}, [](const auto&) { return false; }); !s.ok())
    return std::move(s).Prefixed("funUpdSortidx");
  std::string date, time;
  Com_subGetDate(ctx.clock(), date, time);
  data::Sql sql;
  sql << "update " << Table(ctx.SEC_MEM) << " set"
      << " USER_SEQ = " << data::Number(number) << " ,UPD_KBN = '2'"
      << " ,UPD_YMD = " << Quoted(date) << " ,UPD_HMS = " << Quoted(time)
      << " ,UPD_USR = " << Quoted(ctx.session().Get("PUB_USR_ID")) << " where (USER_ID = " << Quoted(user_id) << ")"
      << " and (SEC_CD = " << Quoted(sec_cd) << ")";
  return data::Com_funExecsql(conn, sql).Prefixed("funUpdSortidx");
}

data::Sql MembersChangedSql(const RequestContext& ctx, const std::string& since_ymd, const std::string& since_hms) {
  // Date and time are compared each on its own, as the pages have always
  // been checked: a later day at an earlier hour is not a change.
  data::Sql sql;
  sql << "select count(SEC_CD) as CNT"
      << " from " << Table(ctx.SEC_MEM) << " where UPD_YMD >= " << Quoted(since_ymd) << " and UPD_HMS > "
      << Quoted(since_hms);
  return sql;
}

Status Com_funAdmUsrTimeStamp(const RequestContext& ctx, data::Connection& conn, const std::string& since_ymd,
                              const std::string& since_hms, std::string& changed) {
  long count = 0;
  if (Status s = data::SelectCount(conn, MembersChangedSql(ctx, since_ymd, since_hms), count); !s.ok())
    return std::move(s).Prefixed("Com_funAdmUsrTimeStamp");
  changed.assign(1, count == 0 ? '0' : '1');  // not a literal: GCC 12 warns falsely on that
  return Status::Ok();
}

void RegistMember(RequestContext& ctx, const std::string& mode, const MemberForm& form, const MembersLoaded& loaded) {
  WriteFrame frame(ctx, kMemberRules);
  if (!frame.Start()) return;
  const auto& [date, time, user] = frame.stamp();
  const bool remove = mode == "1", change = mode == "2", add = mode == "3";
  const std::string &sec_cd = form.sec_cd, &user_id = form.user_id;

  MemberParams p;
  if (change) {
    std::string end = form.ed_ymd.empty() ? "99999999" : form.ed_ymd;
    // Pages send back the open end as 108 showed it.
    if (!text::IsCalendarDate(form.st_ymd) || (end != "99999999" && !text::IsCalendarDate(end)))
      return ctx.Write("ERROR:RECUPDATE");
    p = {sec_cd, user_id, form.sec_kbn, form.st_ymd, end, form.post_cd, date, time, user};
  } else if (add) {
    p = {sec_cd, user_id, "0", "", date, "99999999", "", date, time, user};
  } else if (remove) {
    p = {sec_cd, user_id};
  }
  // The moment the page loaded the members; the session's when it sent none.
  std::string since_ymd = loaded.ymd, since_hms = loaded.hms;
  if (since_ymd.empty() && since_hms.empty()) {
    since_ymd = ctx.session().Get(kMembersLoadedYmd);
    since_hms = ctx.session().Get(kMembersLoadedHms);
  }

  // An add reads that its user and section exist: the user table is held
  // against a user's delete (206), the section table against a group's
  // delete (203), both of which lock the table first.
  if (!frame.Open() || !(add ? frame.Begin({ctx.USR_MST, ctx.SEC_MST}) : frame.Begin())) return;
  data::Connection& conn = frame.conn();
  if (!since_ymd.empty() || !since_hms.empty()) {
    std::string changed;
    Status stamp = Com_funAdmUsrTimeStamp(ctx, conn, since_ymd, since_hms, changed);
    if (!stamp.ok() || changed != "0") return frame.FailWithoutRollback("ERROR:TIMESTAMP", stamp);
  }
  if (remove && ctx.WorkTables()) {
    // The list is the mail server's, not the work copy's: its outcome does
    // not stop the removal, and it answers nothing of its own.
    DiscardedWrites discarded(ctx);
    data::Connection list_conn;
    if (data::Com_funDbOpen(frame.Dsn(), "", "", list_conn).ok())
      accounts::funDelMailList(ctx, list_conn, sec_cd, user_id).IgnoreError();
  }
  bool already_primary = false;
  if (remove) {
    if (!frame.Step("ERROR:RECDELETE", funDelCirMember(ctx, conn, p).Prefixed("funDelCirMember"))) return;
  } else if (change) {
    if (!frame.Step("ERROR:RECUPDATE", funUpdAdmMember(ctx, conn, p, already_primary).Prefixed("funUpdAdmMember")))
      return;
    if (already_primary) return frame.Fail("ERROR:ALREADYPRIMARY");
  } else if (add) {
    if (!frame.Step("ERROR:RECINSERT", funNextSortidx(ctx, conn, sec_cd, p[3]).Prefixed("funNextSortidx")) ||
        !frame.Step("ERROR:RECINSERT", funInsCirMember(ctx, conn, p, already_primary).Prefixed("funInsCirMember")))
      return;
  }
  if (frame.Commit()) frame.Finish();
}

}  // namespace orvane::members
