#include "data/demo_data.h"

#include <vector>

#include "base/text.h"
#include "data/schema.h"

namespace orvane::data {
namespace {

// The tree: 本社 at the top, three departments, two sales sections below the
// sales department. 開発部 is deleted in the work copy only, so DBFlg=1 shows
// the difference.
struct DemoSection {
  const char* code;
  const char* parent;
  const char* seq;
  const char* tree;
  const char* name;
  const char* tree_nm;
  const char* list;  // mailing list, or null
  const char* work_upd_kbn;
};
constexpr DemoSection kSections[] = {
    {"0000", "9999", "001", "0000", "本社", "本社", "general", "3"},
    {"0001", "0000", "001", "0000/0001", "営業部", "/ 営業部", nullptr, "3"},
    {"0002", "0000", "002", "0000/0002", "総務部", "/ 総務部", nullptr, "3"},
    {"0003", "0000", "003", "0000/0003", "開発部", "/ 開発部", nullptr, "1"},
    {"0004", "0001", "001", "0000/0001/0004", "東日本営業課", "/ 営業部 / 東日本営業課", "sales-east", "3"},
    {"0005", "0001", "002", "0000/0001/0005", "西日本営業課", "/ 営業部 / 西日本営業課", nullptr, "3"},
};

// Names in several kana rows (カ, ヤ, サ, ア, ワ, タ). Logins: id = password.
struct DemoUser {
  const char* id;
  const char* name_kj;
  const char* name_kn;
  const char* post_nm;
  const char* post_cd;
  const char* ext_tel;
  const char* menus;  // granted menu numbers, "/"-framed; "*" for all
};
constexpr DemoUser kUsers[] = {
    {"admin", "管理者", "カンリシャ", "部長", "01", "100", "*"},
    {"yamada", "山田 太郎", "ヤマダ タロウ", "課長", "02", "201", "/01/02/21/"},
    {"sato", "佐藤 花子", "サトウ ハナコ", "主任", "03", "202", "/01/21/"},
    {"ito", "伊藤 健", "イトウ ケン", "", "", "301", "/01/"},
    {"watanabe", "渡辺 直美", "ワタナベ ナオミ", "部長", "01", "401", "/01/03/"},
    {"tanaka", "田中 一郎", "タナカ イチロウ", "", "", "", "/01/"},
};

// Primary ("1") and concurrent memberships; tanaka's ended at the end of
// 2023, so the current-only member list leaves him out.
struct DemoMember {
  const char* sec;
  const char* user;
  const char* sec_kbn;
  const char* seq;
  const char* post_cd;
  const char* st;
  const char* ed;
};
constexpr DemoMember kMembers[] = {
    {"0000", "admin", "1", "001", "01", "20000101", "99999999"},
    {"0004", "yamada", "1", "001", "02", "20150401", "99999999"},
    {"0002", "yamada", "0", "001", "", "20220401", "99999999"},
    {"0004", "sato", "1", "002", "03", "20180401", "99999999"},
    {"0004", "tanaka", "1", "003", "", "20190401", "20231231"},
    {"0005", "ito", "1", "001", "", "20200401", "99999999"},
    {"0003", "watanabe", "1", "001", "01", "20100401", "99999999"},
    {"0001", "watanabe", "0", "001", "01", "20210401", "99999999"},
};

struct DemoPost {
  const char* code;
  const char* name;
  const char* class_cd;
};
constexpr DemoPost kPosts[] = {{"01", "部長", "1"}, {"02", "課長", "2"}, {"03", "主任", "3"}};

struct Stamp {
  std::string ymd, hms;
};

Status Run(Connection& conn, const Sql& sql) { return Com_funExecsql(conn, sql).Prefixed("InsertDemoData"); }

// The four stamp values of every row.
void Stamps(Sql& sql, const char* upd_kbn, const Stamp& s) {
  sql << " ," << Quoted(upd_kbn) << " ," << Quoted(s.ymd) << " ," << Quoted(s.hms) << " ," << Quoted("admin") << ")";
}

Status InsertSections(Connection& conn, const std::string& suffix, const Stamp& s) {
  for (const DemoSection& d : kSections) {
    Sql sql;
    sql << "insert into " << Table("T_SECTION" + suffix)
        << " (SEC_CD ,SEC_NM ,DSP_NM ,JOI_SEC ,SEC_SEQ ,SEC_TREE ,TREE_NM ,BUSHO_CD ,IMAIL_LIST"
           " ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR) values ("
        << Quoted(d.code) << " ," << Quoted(d.name) << " ," << Quoted(d.name) << " ," << Quoted(d.parent) << " ,"
        << Quoted(d.seq) << " ," << Quoted(d.tree) << " ," << Quoted(d.tree_nm) << " ,"
        << Quoted(std::string("B") + d.code) << " ,";
    if (d.list) {
      sql << Quoted(d.list);
    } else {
      sql << "NULL";
    }
    Stamps(sql, suffix.empty() ? "3" : d.work_upd_kbn, s);
    if (Status st = Run(conn, sql); !st.ok()) return st;
  }
  return Status::Ok();
}

Status InsertUsers(Connection& conn, const std::string& suffix, const Stamp& s) {
  int order = 1;
  for (const DemoUser& u : kUsers) {
    std::string dsp = text::Right("000" + std::to_string(order++), 3);
    Sql row;
    row << "insert into " << Table("T_USER" + suffix)
        << " (USER_ID ,NAME_KJ ,NAME_KN ,PASSWORD ,PASSWORD_YMD ,MAIL ,IMAIL_FLG ,MAIL_USE_FLG ,MAIL_NM ,EXT_TEL"
           " ,POST_NM ,DSP_NM ,POST_CD ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR) values ("
        << Quoted(u.id) << " ," << Quoted(u.name_kj) << " ," << Quoted(u.name_kn) << " ," << Quoted(u.id) << " ,"
        << Quoted(s.ymd) << " ," << Quoted(u.id) << " ," << Quoted("0") << " ," << Quoted("0") << " ,"
        << Quoted(u.name_kj) << " ," << Quoted(u.ext_tel) << " ," << Quoted(u.post_nm) << " ," << Quoted(dsp) << " ,"
        << Quoted(u.post_cd);
    Stamps(row, "3", s);
    if (Status st = Run(conn, row); !st.ok()) return st;

    // A granted menu holds its own number, any other "ZZ".
    Sql rights;
    rights << "insert into " << Table("MENU_USER" + suffix) << " (USER_ID";
    std::vector<std::string> codes = text::Split(kMenuCodeList, ",");
    for (const std::string& code : codes) rights << " ," << Identifier("MENU" + code);
    rights << " ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR) values (" << Quoted(u.id);
    std::string menus = u.menus;
    for (const std::string& code : codes) {
      bool granted = menus == "*" || menus.find("/" + code + "/") != std::string::npos;
      rights << " ," << Quoted(granted ? code : std::string("ZZ"));
    }
    Stamps(rights, "3", s);
    if (Status st = Run(conn, rights); !st.ok()) return st;
  }
  return Status::Ok();
}

Status InsertMembers(Connection& conn, const std::string& suffix, const Stamp& s) {
  for (const DemoMember& m : kMembers) {
    Sql sql;
    sql << "insert into " << Table("T_SECMEMBER" + suffix)
        << " (SEC_CD ,USER_ID ,SEC_KBN ,USER_SEQ ,POST_CD ,ST_YMD ,ED_YMD ,UPD_KBN ,UPD_YMD ,UPD_HMS"
           " ,UPD_USR) values ("
        << Quoted(m.sec) << " ," << Quoted(m.user) << " ," << Quoted(m.sec_kbn) << " ," << Quoted(m.seq) << " ,"
        << Quoted(m.post_cd) << " ," << Quoted(m.st) << " ," << Quoted(m.ed);
    Stamps(sql, "3", s);
    if (Status st = Run(conn, sql); !st.ok()) return st;
  }
  return Status::Ok();
}

Status InsertTableSet(Connection& conn, const std::string& suffix, const Stamp& s) {
  if (Status st = InsertSections(conn, suffix, s); !st.ok()) return st;
  if (Status st = InsertUsers(conn, suffix, s); !st.ok()) return st;
  return InsertMembers(conn, suffix, s);
}

Status InsertPosts(Connection& conn) {
  for (const DemoPost& p : kPosts) {
    Sql post;
    post << "insert into " << Table("T_POST_MST") << " (POST_CD ,POST_NAME ,CLASS_CD) values (" << Quoted(p.code)
         << " ," << Quoted(p.name) << " ," << Quoted(p.class_cd) << ")";
    if (Status st = Run(conn, post); !st.ok()) return st;
  }
  return Status::Ok();
}

}  // namespace

Status InsertDemoData(Connection& conn, const Clock& clock) {
  Sql probe;
  probe << "select count(SEC_CD) as CNT from " << Table("T_SECTION") << " where SEC_CD = " << Quoted("0000");
  Recordset rs;
  std::vector<std::string> values;
  bool eof = false;
  if (Status s = Com_funSelect(conn, probe, rs); !s.ok()) return std::move(s).Prefixed("InsertDemoData");
  if (Status s = Com_funfetchData(rs, {"CNT"}, values, eof); !s.ok()) return std::move(s).Prefixed("InsertDemoData");
  Com_funRecordsetClose(rs).IgnoreError();            // the count is read; the handle goes with `rs` anyway
  if (!eof && values[0] != "0") return Status::Ok();  // already there

  Stamp stamp;
  Com_subGetDate(clock, stamp.ymd, stamp.hms);
  if (Status s = Com_funBeginTrans(conn); !s.ok()) return s;
  Status s = InsertPosts(conn);
  if (s.ok()) s = InsertTableSet(conn, "", stamp);
  if (s.ok()) s = InsertTableSet(conn, "_WORK", stamp);
  if (!s.ok()) {
    Com_funRollbackTrans(conn).IgnoreError();  // the insert's failure is the one to report
    return s;
  }
  return Com_funCommitTrans(conn);
}

}  // namespace orvane::data
