#include "load/invariants.h"

#include <map>
#include <utility>

#include "data/db.h"

namespace orvane::bench {
namespace {

using data::Sql;
using data::Table;

constexpr char kTop[] = "0000";
constexpr char kNoParent[] = "9999";

struct Section {
  std::string code, parent, seq, tree, name, tree_nm;
};

// A section name as it enters a path: blanks removed when it holds "/ ",
// so that the path still splits at "/ ".
std::string PathName(const std::string& name) {
  if (name.find("/ ") == std::string::npos) return name;
  std::string out;
  for (char c : name)
    if (c != ' ') out.push_back(c);
  return out;
}

Status ReadAll(data::Connection& conn, const Sql& sql, const std::vector<std::string>& names,
               std::vector<std::vector<std::string>>& rows) {
  return data::SelectRows(conn, sql, names, [&rows](const std::vector<std::string>& v) {
    rows.push_back(v);
    return true;
  });
}

class Checker {
 public:
  explicit Checker(InvariantReport& report) : report_(report) {}
  void Add(const char* kind, std::string detail) { report_.violations.push_back({kind, std::move(detail)}); }

  void Sections(const std::vector<Section>& sections) {
    std::map<std::string, const Section*> by_code;
    for (const Section& s : sections)
      if (!by_code.emplace(s.code, &s).second) Add("keys", "SEC_CD " + s.code + " twice");
    std::map<std::pair<std::string, std::string>, std::string> seq_taken;
    for (const Section& s : sections) {
      auto [it, fresh] = seq_taken.emplace(std::make_pair(s.parent, s.seq), s.code);
      if (!fresh) Add("order", "sections " + it->second + " and " + s.code + " under " + s.parent + " share SEC_SEQ " + s.seq);
      const Section* parent = nullptr;
      if (s.parent != kNoParent) {
        auto p = by_code.find(s.parent);
        if (p == by_code.end()) {
          Add("sections", "section " + s.code + " has JOI_SEC " + s.parent + ", which does not exist");
          continue;
        }
        parent = p->second;
      }
      // A chain longer than the table loops.
      const Section* walk = &s;
      size_t steps = 0;
      while (walk && walk->parent != kNoParent && steps <= sections.size()) {
        auto p = by_code.find(walk->parent);
        walk = p == by_code.end() ? nullptr : p->second;
        ++steps;
      }
      if (steps > sections.size()) {
        Add("sections", "section " + s.code + " lies on a cycle of JOI_SEC");
        continue;
      }
      std::string tree = parent ? parent->tree + "/" + s.code : s.code;
      if (s.tree != tree) Add("sections", "section " + s.code + " has SEC_TREE '" + s.tree + "', its parent gives '" + tree + "'");
      std::string name = PathName(s.name);
      std::string tree_nm = !parent ? name : parent->code == kTop ? "/ " + name : parent->tree_nm + " / " + name;
      if (s.tree_nm != tree_nm)
        Add("names", "section " + s.code + " has TREE_NM '" + s.tree_nm + "', its parent gives '" + tree_nm + "'");
    }
  }

 private:
  InvariantReport& report_;
};

}  // namespace

std::string InvariantReport::Text() const {
  std::string out;
  if (violations.empty()) {
    out = "holds (" + std::to_string(sections) + " sections, " + std::to_string(users) + " users, " +
          std::to_string(memberships) + " memberships)";
  }
  for (const Violation& v : violations) out += (out.empty() ? "" : "\n") + v.kind + ": " + v.detail;
  return out;
}

Status CheckInvariants(const std::string& dsn, const std::string& suffix, const std::set<std::string>& exempt_users,
                       InvariantReport& report) {
  report = {};
  data::Connection conn;
  if (Status s = data::Com_funDbOpen(dsn, "", "", conn); !s.ok()) return s;
  std::vector<std::vector<std::string>> section_rows, user_rows, member_rows, menu_rows, passgen_rows;
  Sql sections, users, members, menus, passgen;
  sections << "select SEC_CD,JOI_SEC,SEC_SEQ,SEC_TREE,SEC_NM,TREE_NM from " << Table("T_SECTION" + suffix);
  users << "select USER_ID from " << Table("T_USER" + suffix);
  members << "select SEC_CD,USER_ID,USER_SEQ from " << Table("T_SECMEMBER" + suffix);
  menus << "select USER_ID from " << Table("MENU_USER" + suffix);
  passgen << "select USER_ID from " << Table("T_PASSGEN" + suffix);
  for (auto [sql, names, rows] :
       {std::tuple{&sections, std::vector<std::string>{"SEC_CD", "JOI_SEC", "SEC_SEQ", "SEC_TREE", "SEC_NM", "TREE_NM"},
                   &section_rows},
        std::tuple{&users, std::vector<std::string>{"USER_ID"}, &user_rows},
        std::tuple{&members, std::vector<std::string>{"SEC_CD", "USER_ID", "USER_SEQ"}, &member_rows},
        std::tuple{&menus, std::vector<std::string>{"USER_ID"}, &menu_rows},
        std::tuple{&passgen, std::vector<std::string>{"USER_ID"}, &passgen_rows}}) {
    if (Status s = ReadAll(conn, *sql, names, *rows); !s.ok()) return s;
  }
  if (Status s = data::Com_funDbClose(conn); !s.ok()) return s;

  Checker check(report);
  std::vector<Section> all;
  for (const auto& r : section_rows) all.push_back({r[0], r[1], r[2], r[3], r[4], r[5]});
  report.sections = static_cast<long>(all.size());
  check.Sections(all);
  std::set<std::string> section_codes;
  for (const Section& s : all) section_codes.insert(s.code);

  std::set<std::string> user_ids, menu_ids, passgen_ids;
  for (const auto& r : user_rows)
    if (!user_ids.insert(r[0]).second) check.Add("keys", "USER_ID " + r[0] + " twice");
  for (const auto& r : menu_rows)
    if (!menu_ids.insert(r[0]).second) check.Add("keys", "MENU_USER " + r[0] + " twice");
  for (const auto& r : passgen_rows) passgen_ids.insert(r[0]);
  report.users = static_cast<long>(user_ids.size());
  for (const std::string& id : user_ids) {
    if (!menu_ids.count(id)) check.Add("users", "user " + id + " has no MENU_USER row");
    if (!passgen_ids.count(id) && !exempt_users.count(id)) check.Add("users", "user " + id + " has no T_PASSGEN row");
  }
  for (const std::string& id : menu_ids)
    if (!user_ids.count(id)) check.Add("users", "MENU_USER row of missing user " + id);

  report.memberships = static_cast<long>(member_rows.size());
  std::set<std::pair<std::string, std::string>> member_keys, seq_keys;
  for (const auto& r : member_rows) {
    const std::string &sec = r[0], &user = r[1], &seq = r[2];
    if (!member_keys.insert({sec, user}).second) check.Add("keys", "membership " + sec + "/" + user + " twice");
    if (!seq_keys.insert({sec, seq}).second)
      check.Add("order", "two members of section " + sec + " share USER_SEQ " + seq + " (one is " + user + ")");
    if (!user_ids.count(user)) check.Add("memberships", "section " + sec + " holds missing user " + user);
    if (!section_codes.count(sec)) check.Add("memberships", "user " + user + " belongs to missing section " + sec);
  }
  return Status::Ok();
}

}  // namespace orvane::bench
