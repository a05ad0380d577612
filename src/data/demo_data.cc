#include "data/demo_data.h"

#include <vector>

#include "dispatch/request_context.h"
#include "dispatch/text.h"

namespace orvane::data {
namespace {

struct DemoUser {
  const char* id;
  const char* name_kj;
  const char* name_kn;
  const char* mail;
  const char* post_cd;
  const char* sec_kbn;
};
constexpr DemoUser kUsers[] = {
    {"admin", "管理者", "カンリシャ", "admin", "01", "1"},
    {"yamada", "山田 太郎", "ヤマダ タロウ", "yamada", "", "1"},
};

struct Stamp {
  std::string ymd, hms;
};

bool Run(Connection& conn, const Sql& sql, std::string& error) {
  if (Com_funExecsql(conn, sql, error) == 0) return true;
  error = "InsertDemoData\r\n" + error;
  return false;
}

bool InsertTableSet(Connection& conn, const std::string& suffix, const Stamp& s, std::string& error) {
  std::string section = "T_SECTION" + suffix, user = "T_USER" + suffix, member = "T_SECMEMBER" + suffix,
              menu = "MENU_USER" + suffix;
  Sql sec;
  sec << "insert into " << Table(section)
      << " (SEC_CD ,SEC_NM ,DSP_NM ,JOI_SEC ,SEC_SEQ ,SEC_TREE ,TREE_NM ,BUSHO_CD ,IMAIL_LIST"
         " ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR) values ("
      << Quoted("0000") << " ," << Quoted("本社") << " ," << Quoted("本社") << " ," << Quoted("9999") << " ,"
      << Quoted("001") << " ," << Quoted("0000") << " ," << Quoted("本社") << " ," << Quoted("") << " ,NULL ,"
      << Quoted("3") << " ," << Quoted(s.ymd) << " ," << Quoted(s.hms) << " ," << Quoted("admin") << ")";
  if (!Run(conn, sec, error)) return false;

  int seq = 1;
  for (const DemoUser& u : kUsers) {
    Sql row;
    row << "insert into " << Table(user)
        << " (USER_ID ,NAME_KJ ,NAME_KN ,PASSWORD ,PASSWORD_YMD ,MAIL ,IMAIL_FLG ,MAIL_USE_FLG ,MAIL_NM ,EXT_TEL"
           " ,POST_NM ,DSP_NM ,POST_CD ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR) values ("
        << Quoted(u.id) << " ," << Quoted(u.name_kj) << " ," << Quoted(u.name_kn) << " ," << Quoted(u.id) << " ,"
        << Quoted(s.ymd) << " ," << Quoted(u.mail) << " ," << Quoted("0") << " ," << Quoted("0") << " ,"
        << Quoted(u.name_kj) << " ," << Quoted("") << " ," << Quoted("") << " ," << Quoted(u.name_kj) << " ,"
        << Quoted(u.post_cd) << " ," << Quoted("3") << " ," << Quoted(s.ymd) << " ," << Quoted(s.hms) << " ,"
        << Quoted("admin") << ")";
    if (!Run(conn, row, error)) return false;

    std::string user_seq = text::Right("000" + std::to_string(seq++), 3);
    Sql membership;
    membership << "insert into " << Table(member)
               << " (SEC_CD ,USER_ID ,SEC_KBN ,USER_SEQ ,POST_CD ,ST_YMD ,ED_YMD ,UPD_KBN ,UPD_YMD ,UPD_HMS"
                  " ,UPD_USR) values ("
               << Quoted("0000") << " ," << Quoted(u.id) << " ," << Quoted(u.sec_kbn) << " ," << Quoted(user_seq)
               << " ," << Quoted(u.post_cd) << " ," << Quoted("20000101") << " ," << Quoted("99999999") << " ,"
               << Quoted("3") << " ," << Quoted(s.ymd) << " ," << Quoted(s.hms) << " ," << Quoted("admin") << ")";
    if (!Run(conn, membership, error)) return false;

    // Every menu granted ("1") to both demo users.
    Sql rights;
    rights << "insert into " << Table(menu) << " (USER_ID";
    std::vector<std::string> codes = text::Split(kMenuCodeList, ",");
    for (const std::string& code : codes) rights << " ," << Identifier("MENU" + code);
    rights << " ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR) values (" << Quoted(u.id);
    for (size_t i = 0; i < codes.size(); ++i) rights << " ," << Quoted("1");
    rights << " ," << Quoted("3") << " ," << Quoted(s.ymd) << " ," << Quoted(s.hms) << " ," << Quoted("admin") << ")";
    if (!Run(conn, rights, error)) return false;
  }
  return true;
}

}  // namespace

int InsertDemoData(Connection& conn, const Clock& clock, std::string& error) {
  Sql probe;
  probe << "select count(SEC_CD) as CNT from " << Table("T_SECTION") << " where SEC_CD = " << Quoted("0000");
  Recordset rs;
  std::vector<std::string> values;
  bool eof = false;
  if (Com_funSelect(conn, probe, rs, error) != 0 || Com_funfetchData(rs, {"CNT"}, values, eof, error) != 0) {
    error = "InsertDemoData\r\n" + error;
    return 1;
  }
  Com_funRecordsetClose(rs, error);
  if (!eof && values[0] != "0") return 0;  // already there

  Stamp stamp;
  Com_subGetDate(clock, stamp.ymd, stamp.hms);
  if (Com_funBeginTrans(conn, error) != 0) return 1;
  Sql post;
  post << "insert into " << Table("T_POST_MST") << " (POST_CD ,POST_NAME ,CLASS_CD) values (" << Quoted("01") << " ,"
       << Quoted("部長") << " ," << Quoted("1") << ")";
  bool ok =
      Run(conn, post, error) && InsertTableSet(conn, "", stamp, error) && InsertTableSet(conn, "_WORK", stamp, error);
  std::string ignored;
  if (!ok) {
    Com_funRollbackTrans(conn, ignored);
    return 1;
  }
  return Com_funCommitTrans(conn, error);
}

}  // namespace orvane::data
