#include "members/member_queries.h"

#include "base/text.h"
#include "dispatch/query_frame.h"
#include "members/membership.h"

namespace orvane::members {
namespace {

using data::Number;
using data::Quoted;
using data::SqlText;
using data::Table;

struct SortKey {
  std::string_view column;  // the pages' keyword
  SqlText key;
};
// "post" names POST_CD on the user table, as the pages have always sent it.
constexpr SortKey kMemberSort[] = {
    {"name", "U.NAME_KJ"}, {"id", "M.USER_ID"}, {"post", "U.POST_CD"}, {"mail", "U.MAIL"}, {"term", "M.ST_YMD"},
};

// Today as the system writes it: year padded to four, month and day to two.
std::string Today(const Clock& clock) {
  LocalTime now = clock.Now();
  return text::Right("0000" + std::to_string(now.year), 4) + text::Right("00" + std::to_string(now.month), 2) +
         text::Right("00" + std::to_string(now.day), 2);
}

const data::Columns kUsersGroup = {"S.USER_ID as S_USER_ID", "S.SEC_KBN as S_SEC_KBN", "S.USER_SEQ as S_USER_SEQ",
                                   "S.POST_CD as S_POST_CD", "S.SEC_CD as S_SEC_CD",   "SE.SEC_NM as SE_SEC_NM",
                                   "S.ST_YMD as S_ST_YMD",   "S.ED_YMD as S_ED_YMD"};
const data::Columns kMembers = {"U.NAME_KJ", "M.USER_ID", "M.SEC_KBN", "M.POST_CD", "U.MAIL", "M.ST_YMD", "M.ED_YMD"};

}  // namespace

data::Sql UsersGroupSql(const RequestContext& ctx, const std::string& user_id) {
  data::Sql sql;
  sql << " select " << kUsersGroup << " from " << Table(ctx.SEC_MEM) << " as S ," << Table(ctx.SEC_MST) << " as SE"
      << " where (S.USER_ID =" << Quoted(user_id) << ")"
      << " and (S.SEC_CD = SE.SEC_CD)";
  // Sections deleted in the work copy drop out; the live tables have none.
  if (ctx.WorkTables()) sql << " and SE.UPD_KBN <> '1'";
  sql << " order by S.SEC_KBN DESC ,S.ST_YMD ,S.ED_YMD ,S.SEC_CD";
  return sql;
}

data::Sql SpecificMemberSql(const RequestContext& ctx, const std::string& sec_cd, const std::string& sort_column,
                            const std::string& sort_type, const std::string& current_only, const std::string& today) {
  data::Sql sql;
  sql << "SELECT " << kMembers << " from " << Table(ctx.SEC_MEM) << " as M, " << Table(ctx.USR_MST) << " as U"
      << " where M.SEC_CD = " << Quoted(sec_cd) << " and M.USER_ID = U.USER_ID";
  // Today goes in as a bare number, unquoted; the database compares it with
  // the text columns.
  if (current_only == "1") sql << " and (M.ST_YMD <= " << Number(today) << " and M.ED_YMD >= " << Number(today) << ")";
  sql << " order by ";
  for (const SortKey& key : kMemberSort) {
    if (!text::EqualsIgnoreCase(sort_column, key.column)) continue;
    sql << key.key;
    if (sort_type == "1") sql << " DESC";
    sql << ", M.USER_SEQ";
    return sql;
  }
  sql << "M.USER_SEQ";
  return sql;
}

void GetUsersGroup(RequestContext& ctx, const std::string& user_id) {
  if (WriteListQuery(ctx, UsersGroupSql(ctx, user_id), kUsersGroup.FetchNames())) NoteMembersLoaded(ctx);
}

void GetSpecificMember(RequestContext& ctx, const std::string& sec_cd, const std::string& sort_column,
                       const std::string& sort_type, const std::string& current_only) {
  // This one answer has carried a trailing blank behind its fetch error
  // from the start; pages compare it whole, so it stays.
  if (WriteListQuery(ctx, SpecificMemberSql(ctx, sec_cd, sort_column, sort_type, current_only, Today(ctx.clock())),
                     kMembers.FetchNames(), "ERROR:DBFETCH "))
    NoteMembersLoaded(ctx);
}
}  // namespace orvane::members
