#include "org_generator.h"

#include <cstdio>
#include <functional>
#include <random>
#include <unordered_set>
#include <vector>

namespace orvane::bench {
namespace {

using data::Quoted;
using data::Sql;
using data::Table;

constexpr int kFanOut = 8;
constexpr int kRowsPerStatement = 100;

// First katakana of the names: every head of rows ア to ワ.
const char* const kKanaHeads[] = {"ア", "イ", "ウ", "エ", "オ", "カ", "キ", "ク", "ケ", "コ", "サ",
                                  "シ", "ス", "セ", "ソ", "タ", "チ", "ツ", "テ", "ト", "ナ", "ニ",
                                  "ヌ", "ネ", "ノ", "ハ", "ヒ", "フ", "ヘ", "ホ", "マ", "ミ", "ム",
                                  "メ", "モ", "ヤ", "ユ", "ヨ", "ラ", "リ", "ル", "レ", "ロ", "ワ"};
const char* const kSurnames[] = {"佐藤", "鈴木", "高橋", "田中", "伊藤", "渡辺", "山本", "中村", "小林", "加藤"};
const char* const kPosts[] = {"", "主任", "係長", "課長", "部長"};

std::string Padded(const char* format, int n) {
  char buffer[32];
  std::snprintf(buffer, sizeof buffer, format, n);
  return buffer;
}

std::string SectionCode(int i) { return Padded("%05d", i); }
std::string UserId(int i) { return Padded("u%06d", i); }

// Rows go in as multi-row inserts of kRowsPerStatement rows each.
int InsertRows(data::Connection& conn, int count, const std::function<void(Sql&)>& head,
               const std::function<void(Sql&, int)>& row, std::string& error) {
  for (int first = 0; first < count; first += kRowsPerStatement) {
    Sql sql;
    head(sql);
    for (int i = first; i < count && i < first + kRowsPerStatement; ++i) {
      if (i > first) sql << ",";
      sql << "(";
      row(sql, i);
      sql << ")";
    }
    if (orvane::Status s = data::Com_funExecsql(conn, sql); !s.ok()) {
      error = s.trail();
      return 1;
    }
  }
  return 0;
}

struct Membership {
  int section;
  int user;
  bool primary;
  std::string st, ed;
};

// A start on 1 April of 2000 to 2023; one period in ten has ended.
void Period(std::mt19937& random, Membership& m) {
  int start = 2000 + static_cast<int>(random() % 24);
  m.st = std::to_string(start) + "0401";
  m.ed = random() % 10 == 0 ? std::to_string(start + 1 + static_cast<int>(random() % 3)) + "0331" : "99999999";
}

}  // namespace

OrgFacts FactsOf(const OrgSize& size) { return {SectionCode(1), UserId(size.users / 2)}; }

int GenerateOrganisation(data::Connection& conn, const OrgSize& size, unsigned seed, OrgFacts& facts,
                         std::string& error) {
  std::mt19937 random(seed);
  const std::string stamp_ymd = "20240401", stamp_hms = "090000";
  std::vector<std::string> trees(size.sections);
  for (int i = 0; i < size.sections; ++i)
    trees[i] = i == 0 ? SectionCode(0) : trees[(i - 1) / kFanOut] + "/" + SectionCode(i);
  facts = FactsOf(size);

  // Every user is primary somewhere; the big section gets exactly its share
  // and no concurrent member.
  std::vector<Membership> members;
  members.reserve(size.memberships);
  std::unordered_set<long long> taken;
  auto key = [&](int s, int u) { return static_cast<long long>(s) * size.users + u; };
  for (int u = 0; u < size.users; ++u) {
    int s = u < size.big_section_members ? 1 : 2 + static_cast<int>(random() % (size.sections - 2));
    members.push_back({s, u, true, "", ""});
    Period(random, members.back());
    taken.insert(key(s, u));
  }
  while (static_cast<int>(members.size()) < size.memberships) {
    int u = static_cast<int>(random() % size.users), s = 2 + static_cast<int>(random() % (size.sections - 2));
    if (!taken.insert(key(s, u)).second) continue;
    members.push_back({s, u, false, "", ""});
    Period(random, members.back());
  }
  std::vector<int> next_seq(size.sections, 1);

  if (orvane::Status s = data::Com_funBeginTrans(conn); !s.ok()) {
    error = s.trail();
    return 1;
  }
  auto stamps = [&](Sql& sql) {
    sql << "," << Quoted("3") << "," << Quoted(stamp_ymd) << "," << Quoted(stamp_hms) << "," << Quoted("bench");
  };
  int status = InsertRows(
      conn, size.sections,
      [](Sql& sql) {
        sql << "insert into " << Table("T_SECTION")
            << " (SEC_CD,JOI_SEC,SEC_SEQ,SEC_TREE,SEC_NM,DSP_NM,TREE_NM,BUSHO_CD,IMAIL_LIST,UPD_KBN,UPD_YMD,UPD_HMS,"
               "UPD_USR) values ";
      },
      [&](Sql& sql, int i) {
        std::string parent = i == 0 ? "9999" : SectionCode((i - 1) / kFanOut);
        std::string name = "部署" + SectionCode(i);
        sql << Quoted(SectionCode(i)) << "," << Quoted(parent) << "," << Quoted(Padded("%03d", (i - 1) % kFanOut + 1))
            << "," << Quoted(trees[i]) << "," << Quoted(name) << "," << Quoted(name) << "," << Quoted(name) << ","
            << Quoted(std::string("B").append(SectionCode(i))) << "," << Quoted("");
        stamps(sql);
      },
      error);
  if (status == 0)
    status = InsertRows(
        conn, size.users,
        [](Sql& sql) {
          sql << "insert into " << Table("T_USER")
              << " (USER_ID,NAME_KJ,NAME_KN,PASSWORD,MAIL,IMAIL_FLG,EXT_TEL,POST_NM,DSP_NM,MAIL_USE_FLG,MAIL_NM,"
                 "POST_CD,UPD_KBN,UPD_YMD,UPD_HMS,UPD_USR) values ";
        },
        [&](Sql& sql, int u) {
          std::string id = UserId(u);
          std::string kana = std::string(kKanaHeads[random() % std::size(kKanaHeads)]) + "ダ" + Padded("%06d", u);
          sql << Quoted(id) << "," << Quoted(std::string(kSurnames[u % std::size(kSurnames)]) + Padded(" %06d", u))
              << "," << Quoted(kana) << "," << Quoted(id) << "," << Quoted(id + "@example.jp") << "," << Quoted("0")
              << "," << Quoted(Padded("%04d", u % 10000)) << "," << Quoted(kPosts[u % std::size(kPosts)]) << ","
              << Quoted(Padded("%06d", static_cast<int>(random() % 1000000))) << "," << Quoted("1") << "," << Quoted(id)
              << "," << Quoted(Padded("%02d", u % 5));
          stamps(sql);
        },
        error);
  if (status == 0)
    status = InsertRows(
        conn, static_cast<int>(members.size()),
        [](Sql& sql) {
          sql << "insert into " << Table("T_SECMEMBER")
              << " (SEC_CD,USER_ID,SEC_KBN,USER_SEQ,POST_CD,ST_YMD,ED_YMD,UPD_KBN,UPD_YMD,UPD_HMS,UPD_USR) values ";
        },
        [&](Sql& sql, int i) {
          const Membership& m = members[i];
          sql << Quoted(SectionCode(m.section)) << "," << Quoted(UserId(m.user)) << "," << Quoted(m.primary ? "1" : "0")
              << "," << Quoted(Padded("%03d", next_seq[m.section]++ % 1000)) << ","
              << Quoted(Padded("%02d", m.user % 5)) << "," << Quoted(m.st) << "," << Quoted(m.ed);
          stamps(sql);
        },
        error);
  if (status == 0)
    status = InsertRows(
        conn, static_cast<int>(std::size(kPosts)),
        [](Sql& sql) { sql << "insert into " << Table("T_POST_MST") << " (POST_CD,POST_NAME,CLASS_CD) values "; },
        [&](Sql& sql, int p) {
          sql << Quoted(Padded("%02d", p)) << "," << Quoted(p == 0 ? "一般" : kPosts[p]) << ","
              << Quoted(std::to_string(5 - p));
        },
        error);
  if (status != 0) {
    data::Com_funRollbackTrans(conn).IgnoreError();  // the insert's failure is reported
    return 1;
  }
  orvane::Status s = data::Com_funCommitTrans(conn);
  if (!s.ok()) error = s.trail();
  return s.code();
}

}  // namespace orvane::bench
