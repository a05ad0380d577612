// Membership registration (requests 207 add, 208 change, 209 remove):
// RegistMember and its workers. One request is one transaction on the
// membership table; the time-stamp check refuses a change when any
// membership changed since the page loaded its members.
#pragma once

#include <span>
#include <string>
#include <vector>

#include "base/status.h"
#include "data/db.h"
#include "dispatch/request_context.h"

namespace orvane::members {

// Session values holding the moment (yyyymmdd, hhmmss) the session last
// received a member list (104 or 108): the time-stamp check's default.
inline constexpr std::string_view kMembersLoadedYmd = "ORVANE_MEMBERS_YMD";
inline constexpr std::string_view kMembersLoadedHms = "ORVANE_MEMBERS_HMS";
// Records the moment of a member list answer on the session.
void NoteMembersLoaded(RequestContext& ctx);

// The membership screen's fields as the request table reads them for 207
// to 209: Group_cd, User_cd, Primary, Post_cd, ST_Ymd, ED_Ymd (an add and a
// removal read only the first two).
struct MemberForm {
  std::string sec_cd, user_id, sec_kbn, post_cd, st_ymd, ed_ymd;
};
// The moment the page loaded the members (Upd_Ymd, Upd_Hms): empty, the
// session's; none at all, no check.
struct MembersLoaded {
  std::string ymd, hms;
};

// `mode` "3" add (always concurrent, from today, open-ended), "2" change,
// "1" remove; any other mode answers "OK" and changes nothing. Writes "OK"
// or one "ERROR:" answer, the error trail directly behind the code.
void RegistMember(RequestContext& ctx, const std::string& mode, const MemberForm& form, const MembersLoaded& loaded);

// The workers' parameter array, by mode (see RegistMember).
using MemberParams = std::vector<std::string>;

Status funDelCirMember(const RequestContext& ctx, data::Connection& conn, const MemberParams& p);
// `already_primary` is set when another primary membership overlaps the
// new period of a primary one; nothing is written then.
Status funUpdAdmMember(const RequestContext& ctx, data::Connection& conn, const MemberParams& p, bool& already_primary);
// A new row must name an existing section and user: otherwise it fails
// with "no such section: X" or "no such user: X", as a foreign key would
// refuse the insert.
Status funInsCirMember(const RequestContext& ctx, data::Connection& conn, const MemberParams& p, bool& already_primary);
// funInsCirMember's insert of new rows (one row: its very statement), for
// a caller that has made its checks already (the import, whose plan
// checked every line under the same transaction's locks).
data::Sql InsertCirMemberSql(const RequestContext& ctx, std::span<const MemberParams> rows);
// The next USER_SEQ of the section: max + 1, three digits ("001" first;
// 1000 wraps to "000"); a maximum above 32766 fails as an overflow.
Status funNextSortidx(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd,
                      std::string& next_seq);
// The same on a connection of its own, writing "ERROR:DBOPEN",
// "ERROR:DBFETCH", "ERROR:RSCLOSE" or "ERROR:DBCLOSE" on failure. No
// request calls it.
Status funNextSortidxMember(RequestContext& ctx, const std::string& sec_cd, std::string& next_seq);
// Sets one member's USER_SEQ to `number` (written unquoted). No request
// calls it.
Status funUpdSortidx(const RequestContext& ctx, data::Connection& conn, const std::string& user_id,
                     const std::string& sec_cd, const std::string& number);
// `changed` is "1" when any membership row has UPD_YMD >= `since_ymd` and,
// compared on its own, UPD_HMS > `since_hms`; else "0".
Status Com_funAdmUsrTimeStamp(const RequestContext& ctx, data::Connection& conn, const std::string& since_ymd,
                              const std::string& since_hms, std::string& changed);
// Its statement, run under the locks of the membership changes (207-209).
data::Sql MembersChangedSql(const RequestContext& ctx, const std::string& since_ymd, const std::string& since_hms);

}  // namespace orvane::members
