#include "org/group_registration.h"

#include <utility>

#include "accounts/mail_list_members.h"
#include "base/clock.h"
#include "base/text.h"
#include "dispatch/optional_fields.h"
#include "dispatch/write_frame.h"
#include "org/group_paths.h"
#include "org/tree_change.h"

namespace orvane::org {
namespace {

using data::Quoted;
using data::SqlText;
using data::Table;

// The names the trails carry: the operation's, and the caller's in front of
// the parent's name read.
constexpr char kRoutine[] = "RegistGroup";
constexpr char kJoiTreeNmCaller[] = "Com043_subMain";
constexpr std::string_view kNoConfig = "ERROR:READINFOFILE_SV_FOLDER";
constexpr std::string_view kWrongBushoLength = "部署コードの指定に誤りがあります";
constexpr std::string_view kBushoTaken =
    "入力された部署コードは既に別のグループで使用しています。別の部署コードを設定してください。";

// A failing rollback answers "ERROR:DBROLLBACK" and a failing close
// "ERROR:DBCLOSE", each in place of the step's answer; a failed step's
// code carries the trail, the frame's own codes do not.
constexpr WriteRules kGroupRules = {.close_failure = WriteRules::CloseFailure::kInstead,
                                    .frame_trail = false,
                                    .step_trail = true,
                                    .rollback_failure = "ERROR:DBROLLBACK"};

// " ,OPEN_ID ... And OPEN_KBN = '1'": a row that opens something to a group.
void OpenedToGroup(data::Sql& sql, const std::string& sec_cd) {
  sql << " where OPEN_ID = " << Quoted(sec_cd) << " And OPEN_KBN = '1'";
}

// The list follow-up after a commit: the group's members current today
// join the group's new list. Its writes are discarded, so nothing it meets
// (a missing key, a dead proxy) changes this request's answer.
void AddMembersToList(RequestContext& ctx, data::Connection& conn, const std::string& members_table,
                      const std::string& sec_cd, const std::string& list, const std::string& today) {
  std::string server;
  if (!ctx.config().ComIniFileLoad("ML_SERVER", server).ok()) return;
  data::Sql sql;
  sql << "select USER_ID from " << Table(members_table) << " where SEC_CD = " << Quoted(sec_cd)
      << " and ST_YMD <= " << Quoted(today) << " and ED_YMD >= " << Quoted(today) << " order by USER_SEQ";
  std::vector<std::string> addresses;
  auto add = [&](const std::vector<std::string>& v) {
    addresses.push_back(text::Trim(v[0]) + "@" + server);
    return true;
  };
  if (Status s = data::SelectRows(conn, sql, {"USER_ID"}, add); !s.ok() || addresses.empty()) return;
  DiscardedWrites discarded(ctx);
  // The registration is committed whatever the list says; it catches up
  // with the group's next list change.
  accounts::funAddMailListUser(ctx, list, text::Join(addresses, ","), "0").IgnoreError();
}

}  // namespace

data::Sql InsertGroupSql(const RequestContext& ctx, const GroupRecord& r, bool with_busho) {
  struct Column {
    SqlText name;
    const std::string* value;
  };
  const Column columns[] = {
      {" ,SEC_NM", &r.SEC_NM},         {" ,DSP_NM", &r.DSP_NM},     {" ,JOI_SEC", &r.JOI_SEC},
      {" ,SEC_SEQ", &r.SEC_SEQ},       {" ,SEC_TREE", &r.SEC_TREE}, {" ,TREE_NM", &r.TREE_NM},
      {" ,IMAIL_LIST", &r.IMAIL_LIST}, {" ,UPD_KBN", &r.UPD_KBN},   {" ,UPD_YMD", &r.UPD_YMD},
      {" ,UPD_HMS", &r.UPD_HMS},
  };
  data::Sql sql;
  sql << "insert into " << Table(ctx.SEC_MST) << " (SEC_CD";
  for (const Column& c : columns) sql << c.name;
  if (with_busho) {
    sql << " ,UPD_USR"
        << " ,BUSHO_CD )";
  } else {
    sql << " ,UPD_USR )";
  }
  sql << " values (" << Quoted(r.SEC_CD);
  for (const Column& c : columns) sql << " ," << Quoted(*c.value);
  sql << " ," << Quoted(r.UPD_USR);
  if (with_busho) sql << " ," << Quoted(r.BUSHO_CD);
  sql << ")";
  return sql;
}

data::Sql UpdateGroupSql(const RequestContext& ctx, const GroupRecord& r, bool with_busho) {
  data::Sql sql;
  sql << "update " << Table(ctx.SEC_MST) << " set"
      << " SEC_NM = " << Quoted(r.SEC_NM) << " ,DSP_NM = " << Quoted(r.DSP_NM) << " ,TREE_NM = " << Quoted(r.TREE_NM)
      << " ,IMAIL_LIST = " << Quoted(r.IMAIL_LIST) << " ,UPD_KBN = " << Quoted(r.UPD_KBN)
      << " ,UPD_YMD = " << Quoted(r.UPD_YMD) << " ,UPD_HMS = " << Quoted(r.UPD_HMS)
      << " ,UPD_USR = " << Quoted(r.UPD_USR);
  if (with_busho) sql << " ,BUSHO_CD = " << Quoted(r.BUSHO_CD);
  sql << " where SEC_CD = " << Quoted(r.SEC_CD);
  return sql;
}

Status funInsGroup(const RequestContext& ctx, data::Connection& conn, const GroupRecord& r, bool with_busho) {
  return data::Com_funExecsql(conn, InsertGroupSql(ctx, r, with_busho)).Prefixed("funInsGroup");
}

Status funUpdGroup(const RequestContext& ctx, data::Connection& conn, const GroupRecord& r, bool with_busho) {
  return data::Com_funExecsql(conn, UpdateGroupSql(ctx, r, with_busho)).Prefixed("funUpdGroup");
}

Status funDelGroup(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd,
                   std::string& has_children) {
  constexpr char kName[] = "funDelGroup";
  data::Sql children;
  children << "select count(SEC_CD) as CNT"
           << " from " << Table(ctx.SEC_MST) << " where JOI_SEC =" << Quoted(sec_cd);
  if (ctx.WorkTables()) children << " and (UPD_KBN <> '1')";
  long count = 0;
  if (Status s = data::SelectCount(conn, children, count); !s.ok()) return std::move(s).Prefixed(kName);
  // Deliberately silent: the pages prevent deleting a group with children.
  if (count > 0) {
    has_children = std::string(1, '1');  // GCC 12 warns falsely on a literal assignment here
    return Status::Ok();
  }

  std::vector<data::Sql> steps;
  data::Sql& own = steps.emplace_back();
  if (ctx.WorkTables()) {
    own << "update " << Table(ctx.SEC_MST) << " set UPD_KBN = '1'"
        << " where (SEC_CD = " << Quoted(sec_cd) << ")";
  } else {
    own << "delete from " << Table(ctx.SEC_MST) << " where (SEC_CD = " << Quoted(sec_cd) << ")";
  }
  steps.emplace_back() << "delete from " << Table(ctx.SEC_MEM) << " where (SEC_CD = " << Quoted(sec_cd) << ")";
  for (std::string_view table : {"t_bbsopen", "t_rsvopen", "t_schopen"})
    OpenedToGroup(steps.emplace_back() << "delete from " << Table(table), sec_cd);
  // A group's own schedule key is its code behind "$".
  steps.emplace_back() << "delete from t_schopen"
                       << " where KEY_CD = " << Quoted("$" + sec_cd);
  for (std::string_view table : {"t_cabopen", "t_linkopen", "t_adbkopen", "T_TOPICOPEN"})
    OpenedToGroup(steps.emplace_back() << "delete from " << Table(table), sec_cd);
  steps.emplace_back() << "delete from EVENT_GPINFO"
                       << " where SEC_CD = " << Quoted(sec_cd);
  if (!ctx.WorkTables()) {
    steps.emplace_back() << "delete from schedule_info"
                         << " where syokuin_cd = " << Quoted("$" + sec_cd);
    OpenedToGroup(steps.emplace_back() << "delete from WF_KENGEN", sec_cd);
  }
  for (const data::Sql& step : steps)
    if (Status s = data::Com_funExecsql(conn, step); !s.ok()) return std::move(s).Prefixed(kName);
  return Status::Ok();
}

Status funGetRespidx(const RequestContext& ctx, data::Connection& conn, std::string& code) {
  data::Sql sql;
  sql << "select max(SEC_CD) as MAX_IDX"
      << " from " << Table(ctx.SEC_MST) << " where (SEC_CD <> 'ADMN')"
      << " and (SEC_CD <> 'VIPS')";
  std::string max;
  if (Status s = data::SelectFirstValue(conn, sql, "MAX_IDX", max); !s.ok())
    return std::move(s).Prefixed("funGetRespidx");
  // The wrap of 9999 to "0000" is kept as the pages have always seen it.
  return NextNumber("funGetRespidx", max, 4, code);
}

Status ReadStoredGroup(const RequestContext& ctx, data::Connection& conn, const std::string& sec_cd, StoredGroup& out) {
  constexpr char kRoutine[] = "Com_funAdmGrpTimeStamp1";
  static const data::Columns kColumns({"SEC_CD", "UPD_YMD", "UPD_HMS", "SEC_NM", "JOI_SEC", "IMAIL_LIST"}, " ,");
  data::Sql sql;
  sql << "select " << kColumns << " from " << Table(ctx.SEC_MST) << " where (SEC_CD = " << Quoted(sec_cd) << ")";
  auto keep = [&out](const std::vector<std::string>& v) {
    if (!v[0].empty()) out = {.UPD_YMD = v[1], .UPD_HMS = v[2], .SEC_NM = v[3], .JOI_SEC = v[4], .IMAIL_LIST = v[5]};
    return false;
  };
  return data::SelectRows(conn, sql, kColumns.FetchNames(), keep).Prefixed(kRoutine);
}

Status funCheckBUSHO_CD(const RequestContext& ctx, data::Connection& conn, const std::string& own_sec_cd,
                        const std::string& busho_cd) {
  constexpr char kName[] = "funCheckBUSHO_CD";
  if (busho_cd.empty()) return Status::Ok();
  // A change may send back the code its group already holds, and an undo
  // the one it held before: kept as it is, even when it is older than
  // today's length rule.
  const bool length_ok = text::CodePointLength(busho_cd) == 9 ||
                         (ctx.enlistment && ctx.enlistment->puts_back_stored_values && !own_sec_cd.empty());
  if (!length_ok && own_sec_cd.empty())
    return Status::Failure(std::string(kWrongBushoLength), Status::kDbFailed).Prefixed(kName);
  data::Sql sql;
  sql << "select SEC_CD"
      << " from " << Table(ctx.SEC_MST) << " where (BUSHO_CD = " << Quoted(busho_cd) << ")";
  if (ctx.WorkTables()) sql << " and (UPD_KBN <> '1')";
  std::string user;
  bool found = false;  // the first row decides
  if (Status s = data::SelectFirstValue(conn, sql, "SEC_CD", user, &found); !s.ok())
    return std::move(s).Prefixed(kName);
  if (found && user == own_sec_cd) return Status::Ok();
  if (!length_ok) return Status::Failure(std::string(kWrongBushoLength), Status::kDbFailed).Prefixed(kName);
  if (found) return Status::Failure(std::string(kBushoTaken), Status::kDbFailed).Prefixed(kName);
  return Status::Ok();
}

void RegistGroup(RequestContext& ctx, const std::string& mode, const GroupForm& form) {
  WriteFrame frame(ctx, kGroupRules);
  std::vector<std::string> keys;
  if (!frame.Start({{"JNJI_MODE", kNoConfig}, {"LOCAL_DB_DSN", kNoConfig}, {"ML_FOLDER", kNoConfig}}, keys)) return;
  const bool with_busho = keys[0] != "2";
  const bool add = mode == "3", change = mode == "2", remove = mode == "1";
  const std::string& sec_cd = form.sec_cd;
  // A change stores the department code only when the page asks for it.
  const std::string busho = change && BushoSet(ctx) ? ctx.Field("BUSHO_CD") : form.busho_cd;

  GroupRecord r;
  r.UPD_YMD = frame.stamp().ymd;
  r.UPD_HMS = frame.stamp().hms;
  r.UPD_USR = frame.stamp().usr;
  r.SEC_NM = form.sec_nm;
  r.DSP_NM = form.dsp_nm;
  r.IMAIL_LIST = form.imail_list;
  if (with_busho) r.BUSHO_CD = busho;
  if (change) r.SEC_CD = sec_cd;
  if (add) r.JOI_SEC = sec_cd;
  r.UPD_KBN = std::string(1, add ? '3' : '2');  // GCC 12 warns falsely on a literal assignment here

  // Everything read here decides what is written: it is read inside the
  // transaction, under its write lock.
  if (!frame.Open() || !frame.Begin(ctx.SEC_MST)) return;
  data::Connection& conn = frame.conn();
  UpperTree parent;
  StoredGroup stored;
  // What the drawn tree needs to follow the change, from what it writes.
  TreePatch patch;
  auto stamps = [&r]() -> std::vector<std::pair<SecColumn, std::string>> {
    return {{kUpdKbn, r.UPD_KBN}, {kUpdYmd, r.UPD_YMD}, {kUpdHms, r.UPD_HMS}, {kUpdUsr, r.UPD_USR}};
  };
  if (add && !frame.Step("ERROR:DBSELECT", funGetUpperTree1(ctx, conn, r.JOI_SEC, parent))) return;
  if (change || remove) {
    if (!frame.Step("ERROR:DBSELECT", ReadStoredGroup(ctx, conn, sec_cd, stored))) return;
    r.JOI_SEC = stored.JOI_SEC;
    if (!frame.Step("ERROR:DBSELECT", funGetUpperTree1(ctx, conn, r.JOI_SEC, parent))) return;
    // Saved by another since the page loaded it: the later save is refused.
    if (change && StampChanged(ctx, stored.UPD_YMD, stored.UPD_HMS)) return frame.Fail(kStampChanged);
  }
  if (with_busho && (add || change)) {
    // The refusal's message is for the log; the pages show their own.
    if (Status s = funCheckBUSHO_CD(ctx, conn, add ? std::string() : sec_cd, busho); frame.Failed(s))
      return frame.Fail("ERROR:ALREADYBUSHO");
  }
  if (add || change) {
    std::string joi_tree_nm;
    if (!frame.Step("ERROR:DBSELECT",
                    Com043_funJoiTreeNm(ctx, conn, r.JOI_SEC, joi_tree_nm).Prefixed(kJoiTreeNmCaller)))
      return;
    std::string name = PathName(form.sec_nm);
    r.TREE_NM = r.SEC_CD == kTopSection ? name : ChildTreeNm(r.JOI_SEC, joi_tree_nm, name);
  }

  if (remove) {
    std::string has_children;
    if (!frame.Step("ERROR:SQLEXEC", funDelGroup(ctx, conn, sec_cd, has_children))) return;
    // The silent refusal changed nothing: the tree version and the drawn
    // tree stay as they are, so no page reloads the tree for nothing.
    if (!has_children.empty()) {
      if (frame.Commit()) frame.Finish();
      return;
    }
    patch.removed.push_back(sec_cd);
    patch.relaid.push_back(r.JOI_SEC);
  } else if (add) {
    // Refused as a foreign key would refuse the insert: a group under no
    // section would have a path to nowhere (and a freed code reused for it
    // would make it its own parent). The parent was read under the lock a
    // group's delete (203) takes too.
    if (!parent.exists)
      return frame.Fail("ERROR:SQLEXEC",
                        Status::Failure(std::string("no such parent section: ").append(r.JOI_SEC), Status::kDbFailed)
                            .Prefixed("funInsGroup")
                            .Prefixed(kRoutine));
    if (!frame.Step("ERROR:SQLEXEC", funGetRespidx(ctx, conn, r.SEC_CD))) return;
    r.SEC_TREE = parent.SEC_TREE + "/" + r.SEC_CD;
    if (!frame.Step("ERROR:SQLEXEC", Group_funNextSortidx(ctx, conn, r.JOI_SEC, r.SEC_SEQ)) ||
        !frame.Step("ERROR:SQLEXEC", funInsGroup(ctx, conn, r, with_busho).Prefixed(kRoutine)))
      return;
    std::vector<std::pair<SecColumn, std::string>> values = {{kSecCd, r.SEC_CD},   {kSecNm, r.SEC_NM},
                                                             {kDspNm, r.DSP_NM},   {kJoiSec, r.JOI_SEC},
                                                             {kSecSeq, r.SEC_SEQ}, {kSecTree, r.SEC_TREE}};
    for (auto& stamp : stamps()) values.push_back(std::move(stamp));
    patch.Set(r.SEC_CD, std::move(values));
    patch.added.push_back(r.SEC_CD);
    patch.relaid.push_back(r.JOI_SEC);
  } else if (change) {
    if (!frame.Step("ERROR:SQLEXEC", funUpdGroup(ctx, conn, r, with_busho))) return;
    std::vector<std::pair<SecColumn, std::string>> values = {{kSecNm, r.SEC_NM}, {kDspNm, r.DSP_NM}};
    for (auto& stamp : stamps()) values.push_back(std::move(stamp));
    patch.Set(r.SEC_CD, std::move(values));
  }

  if (add || change) {
    // Every descendant's TREE_NM follows the group's new one.
    UpperTree own;
    own.SEC_TREE = r.SEC_TREE;
    if (change && !frame.Step("ERROR:SQLEXEC", funGetUpperTree1(ctx, conn, sec_cd, own).Prefixed(kRoutine))) return;
    std::vector<TreeRow> rows;
    if (!frame.Step("ERROR:SQLEXEC", ReadSubtree(ctx, conn, own.SEC_TREE + "/", rows).Prefixed(kRoutine))) return;
    const size_t level = Levels(own.SEC_TREE);
    for (const TreeRow& row : rows) {
      data::Sql sql;
      sql << "update " << Table(ctx.SEC_MST) << " set"
          << " TREE_NM = " << Quoted(ChildTreeNm(r.SEC_CD, r.TREE_NM, NamesFrom(row.TREE_NM, level)))
          << " ,UPD_KBN = " << Quoted(r.UPD_KBN) << " ,UPD_YMD = " << Quoted(r.UPD_YMD)
          << " ,UPD_HMS = " << Quoted(r.UPD_HMS) << " ,UPD_USR = " << Quoted(r.UPD_USR)
          << " where SEC_CD = " << Quoted(row.SEC_CD);
      if (!frame.Step("ERROR:SQLEXEC", data::Com_funExecsql(conn, sql).Prefixed(kRoutine))) return;
      patch.Set(row.SEC_CD, stamps());
    }
  }

  if (!CommitTreeChange(ctx, frame, &patch)) return;
  if ((add || change) && !form.imail_list.empty() && stored.IMAIL_LIST != form.imail_list)
    frame.AfterCommit([members = ctx.SEC_MEM, sec_cd = r.SEC_CD, list = form.imail_list, today = r.UPD_YMD](
                          RequestContext& after, data::Connection& conn) {
      AddMembersToList(after, conn, members, sec_cd, list, today);
    });
  FinishTreeChange(ctx, frame, &patch);
}

}  // namespace orvane::org
