#include "dispatch/login.h"

namespace orvane {

using data::Quoted;
using data::Table;

int Com_funChkPasswd(data::Connection& conn, const std::string& user_table, const std::string& user_id,
                     const std::string& password, PasswordRow& row, bool& found, std::string& error) {
  data::Sql sql;
  sql << "select NAME_KJ"
      << " ,NAME_KN"
      << " ,PASSWORD_YMD"
      << " ,MAIL"
      << " ,USER_ID"
      << " ,PASSWORD"
      << " from " << Table(user_table) << " where (USER_ID = " << Quoted(user_id) << ")"
      << " and (PASSWORD = " << Quoted(password) << ")";
  data::Recordset rs;
  std::vector<std::string> values;
  bool eof = false;
  found = false;
  if (data::Com_funSelect(conn, sql, rs, error) != 0 ||
      data::Com_funfetchData(rs, {"NAME_KJ", "NAME_KN", "PASSWORD_YMD", "MAIL", "USER_ID", "PASSWORD"}, values, eof,
                             error) != 0 ||
      data::Com_funRecordsetClose(rs, error) != 0) {
    error = "Com_funChkPasswd\r\n" + error;
    return 1;
  }
  if (eof) return 0;
  found = true;
  row = {values[0], values[1], values[2], values[3], values[4], values[5]};
  return 0;
}

int Com_funGetUserData(data::Connection& conn, const std::string& member_table, const std::string& section_table,
                       const std::string& user_id, const std::string& date, std::vector<UserSection>& sections,
                       std::string& error) {
  data::Sql sql;
  sql << "select M.SEC_CD as M_SEC_CD"
      << " ,S.SEC_NM as S_SEC_NM"
      << " ,S.DSP_NM as S_SEC_DSP"
      << " ,S.SEC_TREE as S_SEC_TREE"
      << " from " << Table(member_table) << " as M ," << Table(section_table) << " as S"
      << " where (M.SEC_CD = S.SEC_CD)"
      << " and (M.USER_ID = " << Quoted(user_id) << ")"
      << " and ((M.ST_YMD <= " << Quoted(date) << ")"
      << " and (M.ED_YMD >= " << Quoted(date) << "))"
      << " and S.UPD_KBN <> '1'"
      << " order by M.SEC_KBN desc ,M.SEC_CD";
  data::Recordset rs;
  sections.clear();
  if (data::Com_funSelect(conn, sql, rs, error) != 0) {
    error = "Com_funGetUserData\r\n" + error;
    return 1;
  }
  for (;;) {
    std::vector<std::string> values;  // fresh per row: nothing carries over
    bool eof = false;
    if (data::Com_funfetchData(rs, {"M_SEC_CD", "S_SEC_NM", "S_SEC_TREE", "S_SEC_DSP"}, values, eof, error) != 0) {
      error = "Com_funGetUserData\r\n" + error;
      return 1;
    }
    if (eof) break;
    sections.push_back({values[0], values[1], values[2], values[3]});
  }
  if (data::Com_funRecordsetClose(rs, error) != 0) {
    error = "Com_funGetUserData\r\n" + error;
    return 1;
  }
  return 0;
}

LoginOutcome LogIn(const ConfigFile& config, const Clock& clock, const std::string& user_id,
                   const std::string& password, Session& session, std::string& error) {
  std::string dsn, message;
  bool has_dsn = false;
  config.ComIniFileLoad("LOCAL_DB_DSN", dsn, message, has_dsn);
  if (!has_dsn) return LoginOutcome::kNoConfig;
  // An empty id is no user, whatever the table holds.
  if (user_id.empty()) return LoginOutcome::kRefused;

  data::Connection conn;
  if (data::Com_funDbOpen(dsn, "", "", conn, error) != 0) return LoginOutcome::kDbOpen;
  PasswordRow row;
  bool found = false;
  if (Com_funChkPasswd(conn, "T_USER", user_id, password, row, found, error) != 0) return LoginOutcome::kDbSelect;
  if (!found) return LoginOutcome::kRefused;
  std::string date, time;
  Com_subGetDate(clock, date, time);
  std::vector<UserSection> sections;
  if (Com_funGetUserData(conn, "T_SECMEMBER", "T_SECTION", row.USER_ID, date, sections, error) != 0)
    return LoginOutcome::kDbSelect;
  std::string ignored;
  data::Com_funDbClose(conn, ignored);

  session.Set("PUB_USR_ID", row.USER_ID);
  session.Set("PUB_USR_PW", row.PASSWORD);
  session.Set("PUB_USR_NM", row.NAME_KJ);
  session.Set("PUB_MAIL", row.MAIL);
  UserSection first = sections.empty() ? UserSection{} : sections.front();
  session.Set("PUB_SEC_CD", first.M_SEC_CD);
  session.Set("PUB_SEC_NM", first.S_SEC_NM);
  session.Set("PUB_DSP_NM", first.S_SEC_DSP);
  session.Set("PUB_SEC_TREE", first.S_SEC_TREE);
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

}  // namespace orvane
