#include "accounts/user_storage.h"

#include <memory>
#include <utility>

#include "accounts/file_system.h"
#include "base/password_hash.h"
#include "base/text.h"
#include "dispatch/read_step_code.h"
#include "dispatch/required_keys.h"

namespace orvane::accounts {
namespace {

using data::Identifier;
using data::Quoted;
using data::Table;

constexpr std::string_view kNoConfig = "ERROR:READINFOFILE_SV_FOLDER";

std::string Lines(std::initializer_list<std::string_view> lines) {
  std::string out;
  for (std::string_view line : lines) {
    if (!out.empty()) out.append(text::kCrLf);
    out.append(line);
  }
  return out;
}

const std::string kIdTaken = Lines({"入力された【ユーザーID】は",
                                    "すでに別のユーザーが「ユーザーID」または、「エイリアス」として使用しています。",
                                    "違う【ユーザーID】または、【エイリアス】を設定してください。"});
const std::string kAliasIsAnId =
    Lines({"入力された【エイリアス】は", "すでに別のユーザーが「ユーザーID」として使用しています。",
           "違う【エイリアス】を設定してください。"});
const std::string kAliasIsAnAlias =
    Lines({"入力された【エイリアス】は", "すでに別のユーザーが「同じエイリアス」で使用しています。",
           "違う【エイリアス】を設定してください。"});
const std::string kIdIsAnAlias =
    Lines({"入力された【ユーザーID】は", "すでに別のユーザーが「エイリアス」として使用しています。",
           "違う【ユーザーID】を設定してください。"});

// A configuration key the routine cannot do without; a missing one writes
// its code to the response.
Status Key(RequestContext& ctx, std::string_view key, std::string& value) {
  return ReadRequiredKey(ctx, key, kNoConfig, value) ? Status::Ok() : Status::Answered();
}

// The mail server's mode and whether it gives every new user an account.
Status MailKeys(RequestContext& ctx, std::string& ml_mode, std::string& add_use) {
  if (Status s = Key(ctx, "ML_MODE", ml_mode); !s.ok()) return s;
  return Key(ctx, "ML_ADDUSEFLG", add_use);
}

// The user row's UPD_KBN: '4' on the work tables, otherwise the routine's
// update flag ("3" insert, "2" update).
std::string UpdKbn(const RequestContext& ctx, std::string_view flag) {
  return std::string(ctx.WorkTables() ? "4" : flag);
}

// The alias check of a new or changed user: another user holding the alias
// as ID or active alias, or (new users) holding the new ID as active alias.
// `routine` leads the message.
Status CheckAlias(RequestContext& ctx, data::Connection& conn, const UserForm& u, bool is_new,
                  std::string_view routine) {
  const std::string &id = u.user_cd, &alias = u.mail_ad;
  data::Sql sql;
  sql << "select USER_ID ,NAME_KJ ,NAME_KN ,MAIL ,IMAIL_FLG from " << Table(ctx.USR_MST)
      << " where (USER_ID=" << Quoted(alias) << ") or (MAIL =" << Quoted(alias) << " And IMAIL_FLG = '1')";
  if (is_new) sql << " or (MAIL =" << Quoted(id) << " And IMAIL_FLG = '1')";
  std::string message;
  auto check = [&](const std::vector<std::string>& row) {
    if (row[0] == id) return true;  // the user's own row holds its own alias
    const bool active = row[4] == "1";
    if (alias == row[0]) {
      message = kAliasIsAnId;
    } else if (active && alias == row[3]) {
      message = kAliasIsAnAlias;
    } else if (is_new && active && id == row[3]) {
      message = kIdIsAnAlias;
    }
    return message.empty();
  };
  if (Status s = data::SelectRows(conn, sql, {"USER_ID", "NAME_KJ", "NAME_KN", "MAIL", "IMAIL_FLG"}, check); !s.ok())
    return std::move(s).From(routine);
  if (message.empty()) return Status::Ok();
  std::string trail(routine);
  trail.append(text::kCrLf).append(message);
  return Status::Refused(std::move(trail));
}

bool Shown(const std::string& disp_menu, std::string_view code) {
  std::string token = "/";
  token.append(code).append("/");
  return disp_menu.find(token) != std::string::npos;
}

// The mail menus follow the mail account when the mail server gives one
// with every new user (ML_MODE "2", ML_ADDUSEFLG "1").
bool MailMenusFollowAccount(const std::string& ml_mode, const std::string& add_use) {
  return ml_mode == "2" && add_use == "1";
}

std::string MailMenu(const std::string& disp_menu, std::string_view code, const std::string& mail_use) {
  return mail_use == "1" && Shown(disp_menu, code) ? std::string(code) : std::string("ZZ");
}

data::Sql InsertMenuSql(RequestContext& ctx, const UserForm& u, const std::string& upd_kbn,
                        const WriteFrame::Stamp& stamp, bool follow_account) {
  const std::string disp_menu = ctx.app().DispMenu(), admin_column = ctx.app().AdminColumn();
  std::vector<std::string> values;
  for (const std::string& code : ctx.menu_codes) {
    bool shown = Shown(disp_menu, code);
    if (code == "02") {
      // The top menu opens for any of the screens it leads to.
      for (std::string_view other : {"20", "11", "12", "13", "14", "15", "16", "17", "18"})
        shown = shown || Shown(disp_menu, other);
    }
    std::string value = shown ? code : "ZZ";
    if (follow_account && (code == "23" || code == "07")) value = MailMenu(disp_menu, code, u.mail_ufl);
    // Nobody chose to make the new user an administrator: only 213 grants it.
    if (text::EqualsIgnoreCase("MENU" + code, admin_column)) value = "ZZ";
    values.push_back(std::move(value));
  }
  data::Sql sql;
  sql << "insert into " << Table(ctx.USR_MNU) << " (USER_ID";
  for (const std::string& code : ctx.menu_codes) sql << " ," << Identifier("MENU" + code);
  sql << " ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR) values ( " << Quoted(u.user_cd);
  for (const std::string& v : values) sql << " ," << Quoted(v);
  sql << " ," << Quoted(upd_kbn) << " ," << Quoted(stamp.ymd) << " ," << Quoted(stamp.hms) << " ," << Quoted(stamp.usr)
      << ")";
  return sql;
}

// The password as the rows keep it: in clear in the plain password mode,
// else its argon2id hash (an empty one stays empty: no password to check).
Status StoredPassword(const std::string& password, data::PasswordMode passwords, std::string& stored) {
  if (passwords == data::PasswordMode::kPlain || password.empty()) {
    stored = password;
    return Status::Ok();
  }
  return HashPassword(password, stored);
}

data::Sql InsertPassgenSql(const RequestContext& ctx, const UserForm& u, const std::string& password,
                           const WriteFrame::Stamp& stamp) {
  data::Sql sql;
  sql << "insert into " << Table("T_PASSGEN" + ctx.table_suffix) << " (USER_ID";
  for (int g = 1; g <= 10; ++g) {
    std::string gen = (g < 10 ? "GEN0" : "GEN") + std::to_string(g);
    sql << " ," << Identifier(gen + "_PASS") << " ," << Identifier(gen + "_YMD") << " ," << Identifier(gen + "_USR");
  }
  sql << ") values (  " << Quoted(u.user_cd) << " ," << Quoted(password) << " ," << Quoted(stamp.ymd) << " ,"
      << Quoted(stamp.usr);
  // The nine older generations start empty.
  for (int i = 0; i < 27; ++i) sql << " ," << Quoted("");
  sql << ")";
  return sql;
}

}  // namespace

Status funInsUser(RequestContext& ctx, data::Connection& conn, const UserForm& u, const WriteFrame::Stamp& stamp,
                  data::PasswordMode passwords, std::vector<data::Sql>* later) {
  constexpr char kName[] = "funInsUser";
  auto beside = [&](data::Sql sql) {
    if (!later) return data::Com_funExecsql(conn, sql);
    later->push_back(std::move(sql));
    return Status::Ok();
  };
  std::string dairi;
  if (Status s = Key(ctx, "DAIRI_ONESELFFLG", dairi); !s.ok()) return s;
  const std::string& id = u.user_cd;

  data::Sql taken;
  taken << "select count(USER_ID) as CNT from " << Table(ctx.USR_MST) << " where USER_ID =" << Quoted(id)
        << " or (MAIL =" << Quoted(id) << " And IMAIL_FLG = '1')";
  long count = 0;
  if (Status s = data::SelectCount(conn, taken, count); !s.ok()) return std::move(s).From(kName);
  if (count > 0) return Status::Refused(kIdTaken);
  if (text::Trim(u.mail_fl) == "1") {
    if (Status s = CheckAlias(ctx, conn, u, true, kName); !s.ok()) return s;
  }

  const std::string upd_kbn = UpdKbn(ctx, "3");
  std::string password;
  if (Status s = StoredPassword(u.user_ps, passwords, password); !s.ok()) return std::move(s).From(kName);
  data::Sql user;
  user << "insert into " << Table(ctx.USR_MST)
       << " (USER_ID ,NAME_KJ ,NAME_KN ,PASSWORD ,PASSWORD_YMD ,MAIL ,IMAIL_FLG ,MAIL_USE_FLG ,MAIL_NM ,EXT_TEL"
          " ,POST_NM ,DSP_NM ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR ) values (  "
       << Quoted(id) << " ," << Quoted(u.user_kj) << " ," << Quoted(u.user_kn) << " ," << Quoted(password) << " ,"
       << Quoted(stamp.ymd) << " ," << Quoted(u.mail_ad) << " ," << Quoted(u.mail_fl) << " ," << Quoted(u.mail_ufl)
       << " ," << Quoted(u.mail_nm) << " ," << Quoted(u.ext_tel) << " ," << Quoted(u.post_nm) << " ,"
       << Quoted(u.disp_nm) << " ," << Quoted(upd_kbn) << " ," << Quoted(stamp.ymd) << " ," << Quoted(stamp.hms) << " ,"
       << Quoted(stamp.usr) << ")";
  if (Status s = data::Com_funExecsql(conn, user); !s.ok()) return std::move(s).From(kName);
  if (Status s = beside(InsertPassgenSql(ctx, u, password, stamp)); !s.ok()) return std::move(s).From(kName);
  if (dairi == "1") {
    // The user's own schedule is open to the user (OPEN_KBN 2 = a user).
    data::Sql open;
    open << "insert into " << Table("T_SCHOPEN" + ctx.table_suffix)
         << " (KEY_CD ,OPEN_KBN ,OPEN_ID ,SHORI_LVL ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR ) values (  " << Quoted(id)
         << " ,'2' ," << Quoted(id) << " ,'Z' ," << Quoted(upd_kbn) << " ," << Quoted(stamp.ymd) << " ,"
         << Quoted(stamp.hms) << " ," << Quoted(stamp.usr) << ")";
    if (Status s = beside(std::move(open)); !s.ok()) return std::move(s).From(kName);
  }

  std::string ml_mode, add_use;
  if (Status s = MailKeys(ctx, ml_mode, add_use); !s.ok()) return s;
  data::Sql menu = InsertMenuSql(ctx, u, upd_kbn, stamp, MailMenusFollowAccount(ml_mode, add_use));
  if (Status s = beside(std::move(menu)); !s.ok()) return std::move(s).From(kName);
  return Status::Ok();
}

Status funUpdUser(RequestContext& ctx, data::Connection& conn, const UserForm& u, const std::string& oldMailUseFlag,
                  const WriteFrame::Stamp& stamp, data::PasswordMode passwords) {
  constexpr char kName[] = "funUpdUser";
  const std::string& id = u.user_cd;
  if (text::Trim(u.mail_fl) == "1") {
    if (Status s = CheckAlias(ctx, conn, u, false, kName); !s.ok()) return s;
  }

  static const data::Columns kMailColumns({"U.MAIL_USE_FLG", "M.MENU23", "M.MENU07"}, ", ");
  data::Sql current;
  current << "select " << kMailColumns << " from " << Table(ctx.USR_MST) << " as U , " << Table(ctx.USR_MNU)
          << " as M where U.USER_ID = M.USER_ID and U.USER_ID = " << Quoted(id);
  std::vector<std::string> row;
  bool found = false;
  data::ReadStep failed = data::ReadStep::kSelect;
  if (Status s = data::SelectFirstRow(conn, current, kMailColumns.FetchNames(), row, found, &failed); !s.ok()) {
    return std::move(s).From(CodeOfReadStep(
        failed,
        {.select = "funUpdUser(select MAIL_USE_FLG)", .fetch = "funUpdUser(fetch)", .close = "funUpdUser(close)"}));
  }

  std::string ml_mode, add_use;
  if (Status s = MailKeys(ctx, ml_mode, add_use); !s.ok()) return s;
  const std::string upd_kbn = UpdKbn(ctx, "2");
  auto flag = [](const std::string& f) { return f.empty() ? std::string("0") : f; };
  if (MailMenusFollowAccount(ml_mode, add_use) && flag(u.mail_ufl) != flag(oldMailUseFlag)) {
    const std::string disp_menu = ctx.app().DispMenu(), admin_column = ctx.app().AdminColumn();
    // Should the administrator's column be a mail menu, it keeps what it
    // holds: only 213 grants it.
    auto mail_menu = [&](std::string_view code, size_t stored) {
      if (found && text::EqualsIgnoreCase("MENU" + std::string(code), admin_column)) return row[stored];
      return MailMenu(disp_menu, code, u.mail_ufl);
    };
    data::Sql menus;
    menus << "update " << Table(ctx.USR_MNU) << " set MENU23 = " << Quoted(mail_menu("23", 1))
          << ",MENU07 = " << Quoted(mail_menu("07", 2)) << " ,UPD_KBN = " << Quoted(upd_kbn)
          << " ,UPD_YMD = " << Quoted(stamp.ymd) << " ,UPD_HMS = " << Quoted(stamp.hms)
          << " ,UPD_USR = " << Quoted(stamp.usr) << " where USER_ID = " << Quoted(id);
    if (Status s = data::Com_funExecsql(conn, menus); !s.ok()) return std::move(s).From(kName);
  }

  // With hashes stored an empty password means "unchanged": the page
  // cannot show the stored one to send it back.
  const bool keep_password = passwords == data::PasswordMode::kArgon2id && u.user_ps.empty();
  std::string password;
  if (Status s = StoredPassword(u.user_ps, passwords, password); !s.ok()) return std::move(s).From(kName);
  data::Sql user;
  user << "update " << Table(ctx.USR_MST) << " set NAME_KJ = " << Quoted(u.user_kj)
       << " ,NAME_KN = " << Quoted(u.user_kn);
  if (!keep_password) user << " ,PASSWORD = " << Quoted(password) << " ,PASSWORD_YMD = " << Quoted(stamp.ymd);
  user << " ,MAIL = " << Quoted(u.mail_ad) << " ,IMAIL_FLG = " << Quoted(u.mail_fl)
       << " ,MAIL_USE_FLG = " << Quoted(u.mail_ufl) << " ,MAIL_NM = " << Quoted(u.mail_nm)
       << " ,EXT_TEL = " << Quoted(u.ext_tel) << " ,POST_NM = " << Quoted(u.post_nm)
       << " ,DSP_NM = " << Quoted(u.disp_nm) << " ,UPD_KBN = " << Quoted(upd_kbn) << " ,UPD_YMD = " << Quoted(stamp.ymd)
       << " ,UPD_HMS = " << Quoted(stamp.hms) << " ,UPD_USR = " << Quoted(stamp.usr)
       << " where USER_ID = " << Quoted(id);
  if (Status s = data::Com_funExecsql(conn, user); !s.ok()) return std::move(s).From(kName);
  return Status::Ok();
}

Status funDelUser(RequestContext& ctx, data::Connection& conn, const std::string& userID) {
  constexpr char kName[] = "funDelUser";
  std::string paths[3];
  const char* const kPathKeys[] = {"ML_READ_ATTACH_PATH", "ML_SEND_ATTACH_PATH", "ML_SAVE_ATTACH_PATH"};
  for (int i = 0; i < 3; ++i) {
    if (Status s = Key(ctx, kPathKeys[i], paths[i]); !s.ok()) return s;
  }

  const auto id = Quoted(userID);
  std::vector<data::Sql> steps;
  auto step = [&steps]() -> data::Sql& { return steps.emplace_back(); };
  // Runs the statements gathered so far, in order, and starts anew.
  auto run_steps = [&]() -> Status {
    for (const data::Sql& sql : steps)
      if (Status s = data::Com_funExecsql(conn, sql); !s.ok()) return s;
    steps.clear();
    return Status::Ok();
  };
  // Rows opened to the user (OPEN_KBN 2 = a user).
  auto opened_to_user = [&](std::string_view table) {
    step() << "delete from " << Table(table) << " where OPEN_ID = " << id << " And OPEN_KBN = '2'";
  };
  auto by = [&](std::string_view table, data::SqlText column) {
    step() << "delete from " << Table(table) << " where " << column << " = " << id;
  };
  step() << "delete from " << Table(ctx.USR_MST) << " where (USER_ID = " << id << ")";
  step() << "delete from " << Table(ctx.USR_MNU) << " where (USER_ID = " << id << ")";
  step() << "delete from " << Table("T_PASSGEN" + ctx.table_suffix) << " where (USER_ID = " << id << ")";
  step() << "delete from " << Table(ctx.SEC_MEM) << " where (USER_ID = " << id << ")";
  opened_to_user("t_bbsopen");
  opened_to_user("t_rsvopen");
  opened_to_user("t_schopen");
  by("t_schopen", "KEY_CD");
  opened_to_user("t_linkopen");
  opened_to_user("t_cabopen");
  opened_to_user("t_adbkopen");
  by("rsv_approver_member", "USER_ID");
  opened_to_user("T_TOPICOPEN");
  if (Status s = run_steps(); !s.ok()) return std::move(s).From(kName);

  // The work copy of the organisation leaves the groupware's personal data
  // alone: it belongs to the live user.
  if (!ctx.WorkTables()) {
    by("custom_info", "USER_ID");
    by("custom_info", "MEMBER_ID");
    for (std::string_view table : {"custom_master", "rsv_approve_status", "top_setting", "user_setting", "mail_setting",
                                   "MYLINK_INFO", "TODO_INFO"})
      by(table, "USER_ID");
    if (Status s = run_steps(); !s.ok()) return std::move(s).From(kName);

    data::Sql groups;
    groups << "SELECT ADGP_CD FROM PSADGP_INFO where USER_ID = " << id;
    std::vector<std::string> codes;
    auto keep = [&codes](const std::vector<std::string>& v) {
      codes.push_back(v[0]);
      return true;
    };
    if (Status s = data::SelectRows(conn, groups, {"ADGP_CD"}, keep); !s.ok()) return std::move(s).From(kName);
    for (const std::string& code : codes) step() << "delete from PSADDR_INFO where ADGP_CD = " << Quoted(code);
    by("PSADGP_INFO", "USER_ID");
    for (std::string_view table : {"ZAISEKI_INFO", "MESSAGE_MAIL", "MESSAGE_INFO", "ACCESS_INFO"}) by(table, "USER_ID");
    by("ACCESS_TIME_BAT", "ACC_BH_USER_ID");
    by("ACCESS_PAGE_BAT", "ACC_BP_USER_ID");
    for (std::string_view table : {"LOG_GET", "LOG_GET_BAT", "LOG_BBS_GET", "LOG_BBS_BAT"}) by(table, "USER_ID");
    opened_to_user("WF_KENGEN");
    for (std::string_view table : {"WF_NENKYU", "WF_SYUKKINBO", "WF_SYUKKINBO_RIREKI"}) by(table, "USER_ID");
    if (Status s = run_steps(); !s.ok()) return std::move(s).From(kName);
  }

  // The configured attachment paths end with "\": the user's folder is the
  // path followed directly by the ID.
  std::unique_ptr<FileSystem> fso;
  if (Status s = funCreateObject_FileSystem(fso); !s.ok()) return std::move(s).From(kName);
  for (const std::string& path : paths) {
    std::string folder = path + userID;
    if (!fso->FolderExists(folder)) continue;
    if (Status s = funDeleteFolder(*fso, folder); !s.ok()) return std::move(s).From(kName);
  }
  return Status::Ok();
}

Status ReadStoredUser(const RequestContext& ctx, const std::string& dsn, const std::string& userID, MailBefore& out) {
  constexpr char kName[] = "DeleteUserInfo1";  // the name the trail has always carried
  static const data::Columns kColumns({"USER_ID", "NAME_KJ", "NAME_KN", "PASSWORD", "MAIL", "IMAIL_FLG", "EXT_TEL",
                                       "POST_NM", "DSP_NM", "MAIL_USE_FLG"});
  data::Connection conn;
  if (Status s = data::Com_funDbOpen(dsn, "", "", conn); !s.ok()) return std::move(s).From(kName);
  data::Sql sql;
  sql << "SELECT " << kColumns << " from " << Table(ctx.USR_MST) << " where USER_ID = " << Quoted(userID);
  std::vector<std::string> row(10);
  bool found = false;
  if (Status s = data::SelectFirstRow(conn, sql, kColumns.FetchNames(), row, found); !s.ok())
    return std::move(s).From(kName);
  if (found) out = {.mail_ufl = row[9], .alias = row[4], .alias_fl = row[5]};
  return data::Com_funDbClose(conn).From(kName);
}

}  // namespace orvane::accounts
