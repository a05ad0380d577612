#include "transfer/import_steps.h"

#include <sodium.h>

#include <algorithm>
#include <map>

#include "accounts/user_storage.h"
#include "data/schema.h"
#include "members/membership.h"
#include "members/menu_rights.h"
#include "org/group_paths.h"
#include "org/group_registration.h"
#include "transfer/import_mail.h"

namespace orvane::transfer {
namespace {

constexpr std::string_view kNoParent = "9999";
// Rows an insert carries at most: 900 bound values of memberships, and
// bound values at most of other inserts; both under every database's limit.
constexpr size_t kBatchRows = 100;
constexpr size_t kBatchValues = 2000;
// New users' rows held back before they are written.
constexpr size_t kBesideRows = 600;

// Writes single-row inserts as few statements: each joins the first open
// insert of its table, in order, up to kBatchValues bound values each.
Status WriteBatched(data::Connection& conn, std::vector<data::Sql>& inserts) {
  std::vector<data::Sql> batches;
  std::vector<size_t> values;  // bound values of each batch
  for (data::Sql& one : inserts) {
    const size_t count = one.ValueCount();
    size_t b = 0;
    while (b < batches.size() && !(values[b] + count <= kBatchValues && batches[b].AppendValuesOf(one))) ++b;
    if (b < batches.size()) {
      values[b] += count;
    } else {
      batches.push_back(std::move(one));
      values.push_back(count);
    }
  }
  for (const data::Sql& batch : batches)
    if (Status s = data::Com_funExecsql(conn, batch); !s.ok()) return s;
  return Status::Ok();
}

std::string Get(const Row& row, FileKind kind, std::string_view column) {
  return row[SpecOf(kind).ExportedIndex(column)];
}

// Twelve characters from an alphabet without look-alikes (0/O, 1/l/I).
std::string RandomPassword() {
  static constexpr char kAlphabet[] = "abcdefghijkmnpqrstuvwxyzABCDEFGHJKLMNPQRSTUVWXYZ23456789";
  if (sodium_init() < 0) return {};
  std::string out;
  for (int i = 0; i < 12; ++i) out.push_back(kAlphabet[randombytes_uniform(sizeof kAlphabet - 1)]);
  return out;
}

// The paths of every section as the import leaves the tree: SEC_TREE (codes)
// and TREE_NM (names), as the registration writes them.
struct Paths {
  std::map<std::string, std::pair<std::string, std::string>> of;  // code -> (SEC_TREE, TREE_NM)
  std::map<std::string, size_t> depth;
};

Paths TreePaths(const Organisation& after) {
  constexpr FileKind kS = FileKind::kSections;
  std::map<std::string, const Row*> by_code;
  for (const Row& r : after.Of(kS)) by_code[Get(r, kS, "code")] = &r;
  Paths paths;
  // Iterative: each section's parents first (the plan refused cycles).
  for (const auto& [code, row] : by_code) {
    std::vector<std::string> chain;
    for (std::string at = code; !paths.of.count(at) && by_code.count(at);) {
      chain.push_back(at);
      at = Get(*by_code[at], kS, "parent");
    }
    for (auto it = chain.rbegin(); it != chain.rend(); ++it) {
      const Row& r = *by_code[*it];
      const std::string parent = Get(r, kS, "parent"), name = org::PathName(Get(r, kS, "name"));
      auto up = paths.of.find(parent);
      if (parent == kNoParent || up == paths.of.end()) {
        paths.of[*it] = {*it, *it == org::kTopSection ? name : "/ " + name};
        paths.depth[*it] = 0;
      } else {
        paths.of[*it] = {up->second.first + "/" + *it, org::ChildTreeNm(parent, up->second.second, name)};
        paths.depth[*it] = paths.depth[parent] + 1;
      }
    }
  }
  return paths;
}

class Applier {
 public:
  Applier(RequestContext& ctx, WriteFrame& frame, const ImportPlan& plan, ImportReport& report,
          const Progress& progress)
      : ctx_(ctx), frame_(frame), conn_(frame.conn()), plan_(plan), report_(report), progress_(progress) {
    for (const PlanLine& l : plan.lines)
      total_ += l.action == Action::kAdd || l.action == Action::kChange || l.action == Action::kDelete;
  }

  // The database part; false (the frame answered, `failed_line` says where)
  // on the first failure.
  bool Run(const std::string& jnji_mode, data::PasswordMode passwords);
  std::string failure;

 private:
  bool Step(const PlanLine& line, Status status);
  void Done(const PlanLine& line, std::string password = {});
  bool Sections(bool with_busho);
  bool Users(data::PasswordMode passwords, bool deletes);
  bool Memberships();
  bool Rights();
  bool SectionDeletes();
  std::vector<const PlanLine*> Lines(FileKind kind, std::initializer_list<Action> actions) const;

  RequestContext& ctx_;
  WriteFrame& frame_;
  data::Connection& conn_;
  const ImportPlan& plan_;
  ImportReport& report_;
  const Progress& progress_;
  size_t total_ = 0, done_ = 0;
};

std::vector<const PlanLine*> Applier::Lines(FileKind kind, std::initializer_list<Action> actions) const {
  std::vector<const PlanLine*> out;
  for (const PlanLine& l : plan_.lines)
    if (l.kind == kind && std::find(actions.begin(), actions.end(), l.action) != actions.end()) out.push_back(&l);
  return out;
}

bool Applier::Step(const PlanLine& line, Status status) {
  if (status.ok()) return true;
  failure = Where(line) + ": " + line.key + ": " + status.trail();
  frame_.Fail("ERROR:IMPORT", status);
  return false;
}

void Applier::Done(const PlanLine& line, std::string password) {
  ReportLine r{line.file,
               line.line,
               line.key,
               std::string(ActionName(line.action)),
               std::string(kResultDone),
               std::move(password),
               line.kind == FileKind::kUsers ? MailBefore(line.before) : std::string(),
               {}};
  report_.lines.push_back(std::move(r));
  if (progress_) progress_(++done_, total_);
}

bool Applier::Sections(bool with_busho) {
  constexpr FileKind kS = FileKind::kSections;
  const Paths paths = TreePaths(plan_.after);
  std::vector<const PlanLine*> lines = Lines(kS, {Action::kAdd, Action::kChange});
  std::stable_sort(lines.begin(), lines.end(), [&paths](const PlanLine* a, const PlanLine* b) {
    return paths.depth.at(a->key) < paths.depth.at(b->key);
  });
  const WriteFrame::Stamp& stamp = frame_.stamp();
  for (const PlanLine* line : lines) {
    const Row& r = line->after;
    org::GroupRecord g{Get(r, kS, "code"),
                       Get(r, kS, "name"),
                       Get(r, kS, "display_name"),
                       Get(r, kS, "parent"),
                       Get(r, kS, "order"),
                       paths.of.at(line->key).first,
                       Get(r, kS, "mailing_list"),
                       line->action == Action::kAdd ? "3" : "2",
                       stamp.ymd,
                       stamp.hms,
                       stamp.usr,
                       Get(r, kS, "department_code"),
                       paths.of.at(line->key).second};
    if (line->action == Action::kAdd) {
      if (!Step(*line, org::funInsGroup(ctx_, conn_, g, with_busho))) return false;
    } else {
      if (!Step(*line, org::funUpdGroup(ctx_, conn_, g, with_busho))) return false;
      // The place in the tree, which the registration's change leaves alone.
      data::Sql place;
      place << "update " << data::Table(ctx_.SEC_MST) << " set JOI_SEC = " << data::Quoted(g.JOI_SEC)
            << " ,SEC_SEQ = " << data::Quoted(g.SEC_SEQ) << " where SEC_CD = " << data::Quoted(g.SEC_CD);
      if (!Step(*line, data::Com_funExecsql(conn_, place))) return false;
    }
    Done(*line);
  }
  // Every other section whose paths moved (below a renamed or moved one).
  std::vector<std::vector<std::string>> stored;
  data::Sql read;
  read << "select SEC_CD ,SEC_TREE ,TREE_NM from " << data::Table(ctx_.SEC_MST);
  Status s = data::SelectRows(conn_, read, {"SEC_CD", "SEC_TREE", "TREE_NM"}, [&stored](const auto& v) {
    stored.push_back(v);
    return true;
  });
  if (!s.ok()) {
    failure = s.trail();
    frame_.Fail("ERROR:IMPORT", s);
    return false;
  }
  for (const std::vector<std::string>& row : stored) {
    auto path = paths.of.find(row[0]);
    if (path == paths.of.end() || (path->second.first == row[1] && path->second.second == row[2])) continue;
    data::Sql sql;
    sql << "update " << data::Table(ctx_.SEC_MST) << " set SEC_TREE = " << data::Quoted(path->second.first)
        << " ,TREE_NM = " << data::Quoted(path->second.second)
        << " ,UPD_KBN = '2' ,UPD_YMD = " << data::Quoted(stamp.ymd) << " ,UPD_HMS = " << data::Quoted(stamp.hms)
        << " ,UPD_USR = " << data::Quoted(stamp.usr) << " where SEC_CD = " << data::Quoted(row[0]);
    if (Status u = data::Com_funExecsql(conn_, sql); !u.ok()) {
      failure = "sections.csv: " + row[0] + ": " + u.trail();
      frame_.Fail("ERROR:IMPORT", u);
      return false;
    }
  }
  return true;
}

bool Applier::Users(data::PasswordMode passwords, bool deletes) {
  constexpr FileKind kU = FileKind::kUsers;
  if (deletes) {
    for (const PlanLine* line : Lines(kU, {Action::kDelete})) {
      if (!Step(*line, accounts::funDelUser(ctx_, conn_, line->key))) return false;
      Done(*line);
    }
    return true;
  }
  // The new users' rows beside their user rows, written batched every few
  // hundred (memory stays bounded) and at the end.
  std::vector<data::Sql> beside;
  auto write_beside = [&]() {
    Status written = WriteBatched(conn_, beside);
    beside.clear();
    if (written.ok()) return true;
    failure = "users.csv: " + written.trail();
    frame_.Fail("ERROR:IMPORT", written);
    return false;
  };
  for (const PlanLine* line : Lines(kU, {Action::kAdd, Action::kChange})) {
    const Row& r = line->after;
    const bool add = line->action == Action::kAdd;
    std::string generated = add && line->password.empty() ? RandomPassword() : std::string();
    accounts::UserForm u;
    u.user_cd = Get(r, kU, "id");
    u.user_kj = Get(r, kU, "name");
    u.user_kn = Get(r, kU, "reading");
    u.user_ps = generated.empty() ? line->password : generated;
    u.mail_ad = Get(r, kU, "mail");
    u.mail_fl = Get(r, kU, "alias_in_use");
    u.mail_ufl = Get(r, kU, "mail_use");
    u.ext_tel = Get(r, kU, "phone");
    u.post_nm = Get(r, kU, "post");
    u.disp_nm = Get(r, kU, "display_name");
    u.mail_nm = Get(r, kU, "mail_name");
    if (!add && line->password.empty() && passwords == data::PasswordMode::kPlain) {
      // Plain passwords are rewritten with the row: the stored one is kept.
      data::Sql sql;
      sql << "select PASSWORD from " << data::Table(ctx_.USR_MST) << " where USER_ID = " << data::Quoted(line->key);
      if (!Step(*line, data::SelectFirstValue(conn_, sql, "PASSWORD", u.user_ps))) return false;
    }
    Status stored =
        add ? accounts::funInsUser(ctx_, conn_, u, frame_.stamp(), passwords, &beside)
            : accounts::funUpdUser(ctx_, conn_, u, Get(line->before, kU, "mail_use"), frame_.stamp(), passwords);
    if (!Step(*line, stored)) return false;
    Done(*line, generated);
    if (beside.size() >= kBesideRows && !write_beside()) return false;
  }
  return write_beside();
}

bool Applier::Memberships() {
  constexpr FileKind kM = FileKind::kMemberships;
  const WriteFrame::Stamp& s = frame_.stamp();
  for (const PlanLine* line : Lines(kM, {Action::kDelete})) {
    const std::string user = Get(line->before, kM, "user"), section = Get(line->before, kM, "section");
    if (!Step(*line, members::funDelCirMember(ctx_, conn_, {section, user}))) return false;
    Done(*line);
  }
  // Consecutive new rows without a post go in one insert of up to
  // kBatchRows rows: the same rows in the same order, one round trip for
  // many. The plan checked, under this transaction's locks, that each row
  // is new, that its user and section are there and that no primary
  // membership overlaps: the add's reads are not made again.
  std::vector<const PlanLine*> batch;
  std::vector<members::MemberParams> rows;
  auto params = [&s](const Row& r) -> members::MemberParams {
    return {Get(r, kM, "section"),
            Get(r, kM, "user"),
            Get(r, kM, "kind"),
            Get(r, kM, "order"),
            Get(r, kM, "start"),
            Get(r, kM, "end"),
            "",
            s.ymd,
            s.hms,
            s.usr};
  };
  auto flush = [&]() {
    if (batch.empty()) return true;
    if (Status done = data::Com_funExecsql(conn_, members::InsertCirMemberSql(ctx_, rows)); !done.ok()) {
      failure = Where(*batch.front()) + (batch.size() > 1 ? " to line " + std::to_string(batch.back()->line) : "") +
                ": " + done.trail();
      frame_.Fail("ERROR:IMPORT", done);
      return false;
    }
    for (const PlanLine* l : batch) Done(*l);
    batch.clear();
    rows.clear();
    return true;
  };
  for (const PlanLine* line : Lines(kM, {Action::kAdd, Action::kChange})) {
    const Row& r = line->after;
    const bool add = line->action == Action::kAdd;
    if (add && Get(r, kM, "post").empty()) {
      batch.push_back(line);
      rows.push_back(params(r));
      if (batch.size() == kBatchRows && !flush()) return false;
      continue;
    }
    if (!flush()) return false;
    const std::string user = Get(r, kM, "user"), section = Get(r, kM, "section");
    if (add) {
      const members::MemberParams one = params(r);
      if (!Step(*line, data::Com_funExecsql(conn_, members::InsertCirMemberSql(ctx_, std::span(&one, 1)))))
        return false;
    } else {
      data::Sql sql;
      sql << "update " << data::Table(ctx_.SEC_MEM) << " set USER_SEQ = " << data::Quoted(Get(r, kM, "order"))
          << " where SEC_CD = " << data::Quoted(section) << " and USER_ID = " << data::Quoted(user);
      if (!Step(*line, data::Com_funExecsql(conn_, sql))) return false;
    }
    // The kind, period and post as the change (208) stores them.
    bool already_primary = false;
    if (!Step(*line, members::funUpdAdmMember(ctx_, conn_,
                                              {section, user, Get(r, kM, "kind"), Get(r, kM, "start"),
                                               Get(r, kM, "end"), Get(r, kM, "post"), s.ymd, s.hms, s.usr},
                                              already_primary)))
      return false;
    if (already_primary && !Step(*line, Status::Refused("another primary membership at the same time"))) return false;
    Done(*line);
  }
  return flush();
}

bool Applier::Rights() {
  constexpr FileKind kR = FileKind::kMenuRights;
  for (const PlanLine* line : Lines(kR, {Action::kAdd, Action::kChange})) {
    data::Sql sql = members::ChangeUserMenuSql(ctx_, "2", line->key, Get(line->after, kR, "rights"), frame_.stamp().ymd,
                                               frame_.stamp().hms);
    if (!Step(*line, data::Com_funExecsql(conn_, sql))) return false;
    Done(*line);
  }
  return true;
}

bool Applier::SectionDeletes() {
  std::vector<const PlanLine*> lines = Lines(FileKind::kSections, {Action::kDelete});
  // Deepest first: a parent is empty when its turn comes.
  std::map<std::string, std::string> parent;
  for (const PlanLine* l : lines) parent[l->key] = Get(l->before, FileKind::kSections, "parent");
  auto depth = [&parent](const std::string& code) {
    size_t d = 0;
    for (auto it = parent.find(code); it != parent.end() && d <= parent.size(); it = parent.find(it->second)) ++d;
    return d;
  };
  std::stable_sort(lines.begin(), lines.end(),
                   [&depth](const PlanLine* a, const PlanLine* b) { return depth(a->key) > depth(b->key); });
  for (const PlanLine* line : lines) {
    std::string has_children;
    if (!Step(*line, org::funDelGroup(ctx_, conn_, line->key, has_children))) return false;
    if (!has_children.empty() && !Step(*line, Status::Refused("the section still has children"))) return false;
    Done(*line);
  }
  return true;
}

bool Applier::Run(const std::string& jnji_mode, data::PasswordMode passwords) {
  return Sections(jnji_mode != "2") && Users(passwords, false) && Memberships() && Rights() && Users(passwords, true) &&
         SectionDeletes();
}

}  // namespace

bool ApplyLines(RequestContext& ctx, WriteFrame& frame, const ImportPlan& plan, const std::string& jnji_mode,
                data::PasswordMode passwords, ImportReport& report, const Progress& progress, std::string& failure) {
  Applier applier(ctx, frame, plan, report, progress);
  const bool done = applier.Run(jnji_mode, passwords);
  failure = applier.failure;
  return done;
}

}  // namespace orvane::transfer
