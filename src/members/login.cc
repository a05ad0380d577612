#include "members/login.h"

#include "base/password_hash.h"
#include "base/text.h"
#include "data/password_mode.h"
#include "data/schema.h"

namespace orvane::members {

using data::Quoted;
using data::Table;

Status Com_funChkPasswd(data::Connection& conn, const std::string& user_table, const std::string& user_id,
                        const std::string& password, PasswordRow& row, bool& found) {
  static const data::Columns kColumns({"NAME_KJ", "NAME_KN", "PASSWORD_YMD", "MAIL", "USER_ID", "PASSWORD"}, " ,");
  data::Sql sql;
  sql << "select " << kColumns << " from " << Table(user_table) << " where (USER_ID = " << Quoted(user_id) << ")"
      << " and (PASSWORD = " << Quoted(password) << ")";
  found = false;
  auto keep = [&](const std::vector<std::string>& v) {
    found = true;
    row = {v[0], v[1], v[2], v[3], v[4], v[5]};
    return false;  // one row is the answer
  };
  return data::SelectRows(conn, sql, kColumns.FetchNames(), keep).Prefixed("Com_funChkPasswd");
}

Status Com_funGetUserData(data::Connection& conn, const std::string& member_table, const std::string& section_table,
                          const std::string& user_id, const std::string& date, std::vector<UserSection>& sections) {
  static const data::Columns kColumns(
      {"M.SEC_CD as M_SEC_CD", "S.SEC_NM as S_SEC_NM", "S.DSP_NM as S_SEC_DSP", "S.SEC_TREE as S_SEC_TREE"}, " ,");
  data::Sql sql;
  sql << "select " << kColumns << " from " << Table(member_table) << " as M ," << Table(section_table) << " as S"
      << " where (M.SEC_CD = S.SEC_CD)"
      << " and (M.USER_ID = " << Quoted(user_id) << ")"
      << " and ((M.ST_YMD <= " << Quoted(date) << ")"
      << " and (M.ED_YMD >= " << Quoted(date) << "))"
      << " and S.UPD_KBN <> '1'"
      << " order by M.SEC_KBN desc ,M.SEC_CD";
  sections.clear();
  auto add = [&sections](const std::vector<std::string>& v) {
    sections.push_back({.M_SEC_CD = v[0], .S_SEC_NM = v[1], .S_SEC_TREE = v[3], .S_SEC_DSP = v[2]});
    return true;
  };
  return data::SelectRows(conn, sql, kColumns.FetchNames(), add).Prefixed("Com_funGetUserData");
}

Status CheckHashedPassword(data::Connection& conn, const std::string& user_table, const std::string& user_id,
                           const std::string& password, PasswordRow& row, bool& found) {
  static const data::Columns kColumns({"NAME_KJ", "NAME_KN", "PASSWORD_YMD", "MAIL", "USER_ID", "PASSWORD"}, " ,");
  data::Sql sql;
  sql << "select " << kColumns << " from " << Table(user_table) << " where (USER_ID = " << Quoted(user_id) << ")";
  found = false;
  PasswordRow stored;
  bool exists = false;
  auto keep = [&](const std::vector<std::string>& v) {
    exists = true;
    stored = {v[0], v[1], v[2], v[3], v[4], v[5]};
    return false;
  };
  if (Status s = data::SelectRows(conn, sql, kColumns.FetchNames(), keep); !s.ok())
    return std::move(s).Prefixed("CheckHashedPassword");
  if (!exists) {
    VerifyNothing(password);  // an unknown id takes as long as a wrong password
    return Status::Ok();
  }
  found = VerifyPassword(stored.PASSWORD, password);
  if (found) row = std::move(stored);
  row.PASSWORD.clear();  // the hash stays in the database
  return Status::Ok();
}

bool IsMenuColumn(const std::string& column) {
  for (const std::string& code : text::Split(data::kMenuCodeList, ","))
    if (column == "MENU" + code) return true;
  return false;
}

namespace {

// Whether the user's menu-rights row holds `column`'s own number in it.
Status HoldsMenuRight(data::Connection& conn, const std::string& user_id, const std::string& column, bool& holds) {
  holds = false;
  if (!IsMenuColumn(column)) return Status::Ok();  // no such right: nobody holds it
  data::Sql sql;
  sql << "select " << data::Identifier(column) << " from " << Table("MENU_USER") << " where USER_ID = "
      << Quoted(user_id);
  std::string value;
  bool found = false;
  Status s = data::SelectFirstValue(conn, sql, column, value, &found);
  holds = found && value == column.substr(4);
  return s;
}

}  // namespace

LoginOutcome LogIn(const ConfigFile& config, const Clock& clock, const LoginForm& form, const std::string& admin_column,
                   Session& session, std::string& error) {
  const std::string &user_id = form.user_id, &password = form.password;
  std::string dsn;
  if (!config.ComIniFileLoad("LOCAL_DB_DSN", dsn).ok()) return LoginOutcome::kNoConfig;
  // An empty id is no user and an empty password no password, whatever
  // the table holds.
  if (user_id.empty() || password.empty()) return LoginOutcome::kRefused;

  data::Connection conn;
  if (Status s = data::Com_funDbOpen(dsn, "", "", conn); !s.ok()) {
    error = s.trail();
    return LoginOutcome::kDbOpen;
  }
  data::PasswordMode mode = data::PasswordMode::kPlain;
  if (Status s = data::ReadPasswordMode(conn, mode); !s.ok()) {
    error = s.trail();
    return LoginOutcome::kDbSelect;
  }
  const bool hashed = mode == data::PasswordMode::kArgon2id;
  PasswordRow row;
  bool found = false;
  if (Status s = hashed ? CheckHashedPassword(conn, "T_USER", user_id, password, row, found)
                        : Com_funChkPasswd(conn, "T_USER", user_id, password, row, found);
      !s.ok()) {
    error = s.trail();
    return LoginOutcome::kDbSelect;
  }
  if (!found) return LoginOutcome::kRefused;
  std::string date, time;
  Com_subGetDate(clock, date, time);
  std::vector<UserSection> sections;
  if (Status s = Com_funGetUserData(conn, "T_SECMEMBER", "T_SECTION", row.USER_ID, date, sections); !s.ok()) {
    error = s.trail();
    return LoginOutcome::kDbSelect;
  }
  bool admin = false;
  if (Status s = HoldsMenuRight(conn, row.USER_ID, admin_column, admin); !s.ok()) {
    error = s.trail();
    return LoginOutcome::kDbSelect;
  }
  // The user is known; a failed close only drops a connection the pool would reuse.
  data::Com_funDbClose(conn).IgnoreError();

  session.Set("PUB_USR_ID", row.USER_ID);
  // With hashes stored the session keeps no password at all.
  if (!hashed) session.Set("PUB_USR_PW", row.PASSWORD);
  session.Set("PUB_USR_NM", row.NAME_KJ);
  session.Set("PUB_MAIL", row.MAIL);
  UserSection first = sections.empty() ? UserSection{} : sections.front();
  session.Set("PUB_SEC_CD", first.M_SEC_CD);
  session.Set("PUB_SEC_NM", first.S_SEC_NM);
  session.Set("PUB_DSP_NM", first.S_SEC_DSP);
  session.Set("PUB_SEC_TREE", first.S_SEC_TREE);
  session.Set(kAdminRight, admin ? "1" : "");
  return LoginOutcome::kOk;
}

const char* LoginAnswer(LoginOutcome outcome) {
  switch (outcome) {
    case LoginOutcome::kOk:
      return "OK";
    case LoginOutcome::kRefused:
      return "ERROR:LOGIN";
    case LoginOutcome::kNoConfig:
      return "ERROR:READINFOFILE_SV_FOLDER";
    case LoginOutcome::kDbOpen:
      return "ERROR:DBOPEN";
    case LoginOutcome::kDbSelect:
      break;
  }
  return "ERROR:DBSELECT";
}

}  // namespace orvane::members
