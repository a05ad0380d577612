#include "data/demo_org.h"

#include <string>
#include <vector>

#include "base/text.h"
#include "data/schema.h"

namespace orvane::data {
namespace {

struct Name {
  const char* kanji;
  const char* kana;
};
constexpr Name kFamilies[] = {
    {"佐々木", "ササキ"}, {"鈴木", "スズキ"},   {"高橋", "タカハシ"}, {"小林", "コバヤシ"}, {"中村", "ナカムラ"},
    {"加藤", "カトウ"},   {"吉田", "ヨシダ"},   {"山口", "ヤマグチ"}, {"松本", "マツモト"}, {"井上", "イノウエ"},
    {"木村", "キムラ"},   {"林", "ハヤシ"},     {"清水", "シミズ"},   {"山崎", "ヤマザキ"}, {"森", "モリ"},
    {"池田", "イケダ"},   {"橋本", "ハシモト"}, {"阿部", "アベ"},     {"石川", "イシカワ"}, {"前田", "マエダ"},
    {"藤田", "フジタ"},   {"小川", "オガワ"},   {"岡田", "オカダ"},   {"後藤", "ゴトウ"},   {"長谷川", "ハセガワ"},
    {"村上", "ムラカミ"}, {"近藤", "コンドウ"}, {"石井", "イシイ"},   {"坂本", "サカモト"}, {"遠藤", "エンドウ"},
};
constexpr Name kGivenNames[] = {
    {"翔太", "ショウタ"}, {"陽菜", "ヒナ"},     {"大輝", "ダイキ"}, {"美咲", "ミサキ"},   {"拓海", "タクミ"},
    {"結衣", "ユイ"},     {"健太", "ケンタ"},   {"彩", "アヤ"},     {"直樹", "ナオキ"},   {"恵", "メグミ"},
    {"誠", "マコト"},     {"由美", "ユミ"},     {"亮", "リョウ"},   {"真由美", "マユミ"}, {"浩", "ヒロシ"},
    {"智子", "トモコ"},   {"大介", "ダイスケ"}, {"千尋", "チヒロ"}, {"隆", "タカシ"},     {"優子", "ユウコ"},
    {"蓮", "レン"},       {"葵", "アオイ"},     {"悠人", "ユウト"}, {"花", "ハナ"},       {"和也", "カズヤ"},
    {"麻衣", "マイ"},     {"裕太", "ユウタ"},   {"舞", "マイ"},     {"光", "ヒカル"},     {"桜", "サクラ"},
};
constexpr const char* kDivisions[] = {"営業",     "技術",     "製造",     "管理",         "企画", "物流",
                                      "品質保証", "研究開発", "海外事業", "情報システム", "人事", "経理"};
constexpr const char* kDepartments[] = {"第一部", "第二部", "第三部", "第四部"};
constexpr const char* kSections[] = {"企画課", "業務課", "推進課", "支援課", "管理課"};

struct Stamp {
  std::string ymd, hms;
};

Status Run(Connection& conn, const Sql& sql) { return Com_funExecsql(conn, sql).Prefixed("InsertLargeDemoData"); }

std::string Digits(int n, int width) { return text::Right(std::string(width, '0') + std::to_string(n), width); }

void Stamps(Sql& sql, const Stamp& s) {
  sql << " ," << Quoted("3") << " ," << Quoted(s.ymd) << " ," << Quoted(s.hms) << " ," << Quoted("admin") << ")";
}

struct Section {
  std::string code, parent, seq, tree, name, tree_nm;
};

// Divisions first (children of 0000 after its three), then each one's
// departments, then their sections: a parent always comes before its children.
std::vector<Section> Sections() {
  std::vector<Section> out;
  int next = 100;
  for (int d = 0; d < 12; ++d) {
    Section div{Digits(next++, 4), "0000", Digits(4 + d, 3), "", std::string(kDivisions[d]) + "本部", ""};
    div.tree = "0000/" + div.code;
    div.tree_nm = "/ " + div.name;
    out.push_back(div);
    for (int p = 0; p < 4; ++p) {
      Section dep{Digits(next++, 4), div.code, Digits(p + 1, 3), "", kDivisions[d] + std::string(kDepartments[p]), ""};
      dep.tree = div.tree + "/" + dep.code;
      dep.tree_nm = div.tree_nm + " / " + dep.name;
      out.push_back(dep);
      for (int s = 0; s < 5; ++s) {
        Section sec{Digits(next++, 4), dep.code, Digits(s + 1, 3), "", dep.name + kSections[s], ""};
        sec.tree = dep.tree + "/" + sec.code;
        sec.tree_nm = dep.tree_nm + " / " + sec.name;
        out.push_back(sec);
      }
    }
  }
  return out;
}

Status InsertTableSet(Connection& conn, const std::string& suffix, const Stamp& s,
                      const std::vector<Section>& sections) {
  std::vector<const Section*> leaves;  // the sections users belong to
  for (const Section& d : sections) {
    Sql sql;
    sql << "insert into " << Table("T_SECTION" + suffix)
        << " (SEC_CD ,SEC_NM ,DSP_NM ,JOI_SEC ,SEC_SEQ ,SEC_TREE ,TREE_NM ,BUSHO_CD ,IMAIL_LIST"
           " ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR) values ("
        << Quoted(d.code) << " ," << Quoted(d.name) << " ," << Quoted(d.name) << " ," << Quoted(d.parent) << " ,"
        << Quoted(d.seq) << " ," << Quoted(d.tree) << " ," << Quoted(d.tree_nm) << " ," << Quoted("") << " ,NULL";
    Stamps(sql, s);
    if (Status st = Run(conn, sql); !st.ok()) return st;
    if (d.name.ends_with("課")) leaves.push_back(&d);
  }
  const std::vector<std::string> codes = text::Split(kMenuCodeList, ",");
  for (int i = 1; i <= kLargeDemoUsers; ++i) {
    std::string id = Digits(i, 4);
    id.insert(id.begin(), 'u');  // not "u" + ...: GCC 12 at -O3 warns wrongly of overlapping memcpy there
    const Name& family = kFamilies[(i * 7) % 30];
    const Name& given = kGivenNames[(i * 11 + i / 30) % 30];
    const std::string kanji = std::string(family.kanji) + " " + given.kanji;
    const std::string kana = std::string(family.kana) + " " + given.kana;
    Sql user;
    user << "insert into " << Table("T_USER" + suffix)
         << " (USER_ID ,NAME_KJ ,NAME_KN ,PASSWORD ,PASSWORD_YMD ,MAIL ,IMAIL_FLG ,MAIL_USE_FLG ,MAIL_NM ,EXT_TEL"
            " ,POST_NM ,DSP_NM ,POST_CD ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR) values ("
         << Quoted(id) << " ," << Quoted(kanji) << " ," << Quoted(kana) << " ," << Quoted("") << " ," << Quoted(s.ymd)
         << " ," << Quoted(id + "@example.jp") << " ," << Quoted("0") << " ," << Quoted("0") << " ," << Quoted(kanji)
         << " ," << Quoted(std::to_string(5000 + i)) << " ," << Quoted("") << " ," << Quoted(Digits(100 + i, 4)) << " ,"
         << Quoted("");
    Stamps(user, s);
    if (Status st = Run(conn, user); !st.ok()) return st;

    Sql rights;  // the first menu only
    rights << "insert into " << Table("MENU_USER" + suffix) << " (USER_ID";
    for (const std::string& code : codes) rights << " ," << Identifier("MENU" + code);
    rights << " ,UPD_KBN ,UPD_YMD ,UPD_HMS ,UPD_USR) values (" << Quoted(id);
    for (const std::string& code : codes) rights << " ," << Quoted(code == codes.front() ? code : std::string("ZZ"));
    Stamps(rights, s);
    if (Status st = Run(conn, rights); !st.ok()) return st;

    const Section& sec = *leaves[(i - 1) % leaves.size()];
    Sql member;
    member << "insert into " << Table("T_SECMEMBER" + suffix)
           << " (SEC_CD ,USER_ID ,SEC_KBN ,USER_SEQ ,POST_CD ,ST_YMD ,ED_YMD ,UPD_KBN ,UPD_YMD ,UPD_HMS"
              " ,UPD_USR) values ("
           << Quoted(sec.code) << " ," << Quoted(id) << " ," << Quoted("1") << " ,"
           << Quoted(Digits(1 + (i - 1) / static_cast<int>(leaves.size()), 3)) << " ," << Quoted("") << " ,"
           << Quoted("20240401") << " ," << Quoted("99999999");
    Stamps(member, s);
    if (Status st = Run(conn, member); !st.ok()) return st;
  }
  return Status::Ok();
}

}  // namespace

Status InsertLargeDemoData(Connection& conn, const Clock& clock) {
  Sql probe;
  probe << "select SEC_CD from " << Table("T_SECTION") << " where SEC_CD = " << Quoted("0100");
  bool found = false;
  std::string ignored;
  if (Status s = SelectFirstValue(conn, probe, "SEC_CD", ignored, &found); !s.ok())
    return std::move(s).Prefixed("InsertLargeDemoData");
  if (found) return Status::Ok();  // already there

  Stamp stamp;
  Com_subGetDate(clock, stamp.ymd, stamp.hms);
  const std::vector<Section> sections = Sections();
  if (Status s = Com_funBeginTrans(conn); !s.ok()) return s;
  Status s = InsertTableSet(conn, "", stamp, sections);
  if (s.ok()) s = InsertTableSet(conn, "_WORK", stamp, sections);
  if (!s.ok()) {
    Com_funRollbackTrans(conn).IgnoreError();  // the insert's failure is the one to report
    return s;
  }
  return Com_funCommitTrans(conn);
}

}  // namespace orvane::data
