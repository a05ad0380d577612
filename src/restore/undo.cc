#include "restore/undo.h"

#include <cctype>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>
#include <vector>

#include "base/text.h"
#include "base/whole_number.h"
#include "data/schema.h"
#include "requests/web_class.h"
#include "restore/caller_frame.h"
#include "restore/entry_images.h"

namespace orvane::restore {
namespace {

using data::Quoted;
using data::Table;
using json = nlohmann::json;

std::string Value(const RowValues& row, const std::string& column) {
  auto it = row.find(column);
  return it == row.end() || !it->second ? std::string() : *it->second;
}

std::string Field(const std::string& fields, const char* name) {
  json j = json::parse(fields, nullptr, false);
  if (!j.is_object() || !j.contains(name) || !j[name].is_string()) return {};
  return j[name].get<std::string>();
}

// "name=value&..." with each value percent-encoded.
std::string Query(std::initializer_list<std::pair<const char*, std::string>> fields) {
  std::string out;
  for (const auto& [name, value] : fields) {
    if (!out.empty()) out += "&";
    out += name;
    out += "=";
    for (unsigned char c : value) {
      if (std::isalnum(c) || c == '-' || c == '_' || c == '.') {
        out += static_cast<char>(c);
      } else {
        char hex[4];
        std::snprintf(hex, sizeof hex, "%%%02X", c);
        out += hex;
      }
    }
  }
  return out;
}

const Image* Find(const std::vector<Image>& images, std::string_view table, const std::string& key) {
  for (const Image& image : images)
    if (image.table == table && image.key == key) return &image;
  return nullptr;
}

// A stored order or id; an unreadable one sorts first.
long long Number(const std::string& s) { return ParseWholeNumber(s, 0, 999999999999).value_or(0); }

// Refusals and failures answer their code alone, a refusal's reason after
// CR LF; a close that fails after another failure stands first.
constexpr WriteRules kUndoRules = {.close_failure = WriteRules::CloseFailure::kBefore,
                                   .frame_trail = false,
                                   .step_trail = false,
                                   .rollback_failure = {}};

// One undo: the entry, and its inverse run as requests enlisted in the
// undo's own transaction, so that it is all or nothing and what decides
// it (the rows still as the change left them) is read under its locks.
class Undoer {
 public:
  Undoer(RequestContext& ctx, long entry) : ctx_(ctx), entry_(entry) {
    session_.Set("PUB_USR_ID", ctx.session().Get("PUB_USR_ID"));
  }

  Outcome Run();

 private:
  // Runs one request as a step of the undo; false (and `answer_` set) when
  // it did not answer "OK".
  bool Step(const std::string& query);
  // The inverse of the change, step by step.
  bool Inverse(const EntryHead& head, const std::vector<Image>& images);
  // The sibling (or fellow member) that now holds the smallest order above
  // `seq`, `excluded` left out; "" when none.
  std::string NextAbove(const data::Sql& select, const char* code_column, const char* order_column,
                        const std::string& seq, const std::string& excluded);
  // A member put back at the order it had, by moves among its section.
  bool PlaceMember(const std::string& sec_cd, const std::string& user_id, const std::string& old_seq);

  RequestContext& ctx_;
  long entry_;
  Session session_;
  Enlistment* enlistment_ = nullptr;  // the undo's transaction, once begun
  std::string work_;                  // "1" when the change was on the work tables
  std::string answer_ = "OK";
};

bool Undoer::Step(const std::string& query) {
  RequestContext step(ctx_.config(), session_, ctx_.app(), ctx_.clock());
  ParseUrlEncoded(query, step.fields);
  if (!work_.empty()) step.fields.Add("DBFlg", work_);
  step.client_address = ctx_.client_address;
  step.enlistment = enlistment_;
  step.proxy_exchanges = ctx_.proxy_exchanges;
  RunRequest(step);
  answer_ = step.response();
  ctx_.NoteFailure(Status::DbFailure("", step.failure_cause()));
  return answer_ == "OK";
}

std::string Undoer::NextAbove(const data::Sql& select, const char* code_column, const char* order_column,
                              const std::string& seq, const std::string& excluded) {
  std::string best, best_seq;
  data::SelectRows(enlistment_->conn, select, {code_column, order_column}, [&](const std::vector<std::string>& v) {
    if (v[0] == excluded || Number(v[1]) <= Number(seq)) return true;
    if (best.empty() || Number(v[1]) < Number(best_seq)) {
      best = v[0];
      best_seq = v[1];
    }
    return true;
  }).IgnoreError();  // none found: the place stays as the operation left it
  return best;
}

bool Undoer::PlaceMember(const std::string& sec_cd, const std::string& user_id, const std::string& old_seq) {
  data::Sql members;
  members << "select USER_ID, USER_SEQ from " << Table(work_.empty() ? "T_SECMEMBER" : "T_SECMEMBER_WORK")
          << " where SEC_CD = " << Quoted(sec_cd);
  // The member moves up to just before the one that followed it.
  std::string next = NextAbove(members, "USER_ID", "USER_SEQ", old_seq, user_id);
  std::string now_seq;
  data::SelectRows(enlistment_->conn, members, {"USER_ID", "USER_SEQ"}, [&](const std::vector<std::string>& v) {
    if (v[0] == user_id) now_seq = v[1];
    return true;
  }).IgnoreError();
  if (next.empty() || Number(now_seq) < Number(old_seq)) return true;
  return Step(Query({{"ReqNo", "211"}, {"Group_cd", sec_cd}, {"User_cd", next}, {"User_cd2", user_id}}));
}

bool Undoer::Inverse(const EntryHead& head, const std::vector<Image>& images) {
  const std::string section = work_.empty() ? "T_SECTION" : "T_SECTION_WORK";
  const std::string member = work_.empty() ? "T_SECMEMBER" : "T_SECMEMBER_WORK";
  const std::string& code = head.code;
  if (code == "202") {
    const std::string group = Field(head.fields, "Group_cd");
    const Image* image = Find(images, section, group);
    if (!image) return true;
    RowValues now;
    bool found = false;
    if (!ReadRow(enlistment_->conn, section, group, {"SEC_NM", "DSP_NM", "IMAIL_LIST", "BUSHO_CD"}, now, found).ok() ||
        !found)
      return Step("ReqNo=202&Group_cd=" + group);  // the operation answers what is missing
    auto before = [&](const char* column) {
      return image->before.contains(column) ? Value(image->before, column) : Value(now, column);
    };
    std::string query = Query({{"ReqNo", "202"},
                               {"Group_cd", group},
                               {"Group_nm", before("SEC_NM")},
                               {"Disp_NM", before("DSP_NM")},
                               {"M_LIST", before("IMAIL_LIST")}});
    if (image->before.contains("BUSHO_CD"))
      query += "&" + Query({{"BUSHO_Set", "1"}, {"BUSHO_CD", before("BUSHO_CD")}});
    return Step(query);
  }
  if (code == "212") {
    const std::string group = Field(head.fields, "Group_cd1");
    const Image* image = Find(images, section, group);
    if (!image || !image->before.contains("JOI_SEC")) return true;
    const std::string parent = Value(image->before, "JOI_SEC"), seq = Value(image->before, "SEC_SEQ");
    if (!Step(Query({{"ReqNo", "212"}, {"Group_cd1", group}, {"Group_cd2", parent}}))) return false;
    // Back under its parent as the last child: it moves up to just before
    // the sibling that followed it.
    data::Sql siblings;
    siblings << "select SEC_CD, SEC_SEQ from " << Table(section) << " where JOI_SEC = " << Quoted(parent);
    std::string next = NextAbove(siblings, "SEC_CD", "SEC_SEQ", seq, group);
    if (next.empty()) return true;
    return Step(Query({{"ReqNo", "210"}, {"Group_cd1", group}, {"Group_cd2", next}, {"Group_cd3", parent}}));
  }
  if (code == "210") {
    const std::string moved = Field(head.fields, "Group_cd1"), parent = Field(head.fields, "Group_cd3");
    const Image* image = Find(images, section, moved);
    if (!image) return true;
    // The moved group goes back to its order; the group holding it now is
    // the one whose place it takes.
    const std::string seq = Value(image->before, "SEC_SEQ");
    for (const Image& other : images)
      if (&other != image && Value(other.after, "SEC_SEQ") == seq)
        return Step(Query({{"ReqNo", "210"}, {"Group_cd1", moved}, {"Group_cd2", other.key}, {"Group_cd3", parent}}));
    return true;
  }
  if (code == "211") {
    const std::string sec_cd = Field(head.fields, "Group_cd"), moved = Field(head.fields, "User_cd2");
    const Image* image = Find(images, member, sec_cd + "/" + moved);
    if (!image) return true;
    const std::string before = Value(image->before, "USER_SEQ"), after = Value(image->after, "USER_SEQ");
    std::string holder;
    for (const Image& other : images)
      if (&other != image && Value(other.after, "USER_SEQ") == before) holder = other.key.substr(sec_cd.size() + 1);
    if (holder.empty()) return true;
    if (Number(after) > Number(before))  // it moved down: it takes its old place back
      return Step(Query({{"ReqNo", "211"}, {"Group_cd", sec_cd}, {"User_cd", holder}, {"User_cd2", moved}}));
    // It moved up: it goes down to just before the member that followed it,
    // or, when it was last, past the member holding its place.
    data::Sql members;
    members << "select USER_ID, USER_SEQ from " << Table(member) << " where SEC_CD = " << Quoted(sec_cd);
    std::string next = NextAbove(members, "USER_ID", "USER_SEQ", before, moved);
    if (!next.empty())
      return Step(Query({{"ReqNo", "211"}, {"Group_cd", sec_cd}, {"User_cd", next}, {"User_cd2", moved}}));
    return Step(Query({{"ReqNo", "211"}, {"Group_cd", sec_cd}, {"User_cd", holder}, {"User_cd2", moved}})) &&
           Step(Query({{"ReqNo", "211"}, {"Group_cd", sec_cd}, {"User_cd", moved}, {"User_cd2", holder}}));
  }
  if (code == "207" || code == "208" || code == "209") {
    for (const Image& image : images) {
      if (image.table != member) continue;
      const size_t slash = image.key.find('/');
      const std::string sec_cd = image.key.substr(0, slash), user_id = image.key.substr(slash + 1);
      if (image.action == "insert") {
        if (!Step(Query({{"ReqNo", "209"}, {"Group_cd", sec_cd}, {"User_cd", user_id}}))) return false;
        continue;
      }
      RowValues now;
      bool found = false;
      if (image.action == "update" &&
          !ReadRow(enlistment_->conn, member, image.key, {"SEC_KBN", "POST_CD", "ST_YMD", "ED_YMD"}, now, found).ok())
        return Step("ReqNo=208&Group_cd=" + sec_cd);
      if (image.action == "delete") {
        if (!Step(Query({{"ReqNo", "207"}, {"Group_cd", sec_cd}, {"User_cd", user_id}}))) return false;
      }
      auto before = [&](const char* column) {
        return image.before.contains(column) ? Value(image.before, column) : Value(now, column);
      };
      if (!Step(Query({{"ReqNo", "208"},
                       {"Group_cd", sec_cd},
                       {"User_cd", user_id},
                       {"Primary", before("SEC_KBN")},
                       {"Post_cd", before("POST_CD")},
                       {"ST_Ymd", before("ST_YMD")},
                       {"ED_Ymd", before("ED_YMD")}})))
        return false;
      if (image.action == "delete" && !PlaceMember(sec_cd, user_id, Value(image.before, "USER_SEQ"))) return false;
    }
    return true;
  }
  if (code == "213") {
    for (const Image& image : images) {
      if (!image.table.starts_with("MENU_USER")) continue;
      std::vector<std::string> columns;
      for (const std::string& menu : text::Split(data::kMenuCodeList, ",")) columns.push_back("MENU" + menu);
      RowValues now;
      bool found = false;
      if (!ReadRow(enlistment_->conn, image.table, image.key, columns, now, found).ok() || !found)
        return Step(Query({{"ReqNo", "213"}, {"User_cd", image.key}}));
      std::string rights = "/";
      for (const std::string& menu : text::Split(data::kMenuCodeList, ",")) {
        const std::string column = "MENU" + menu;
        const std::string value = image.before.contains(column) ? Value(image.before, column) : Value(now, column);
        if (value == menu) rights += menu + "/";
      }
      if (!Step(Query({{"ReqNo", "213"}, {"User_cd", image.key}, {"User_Menu", rights}}))) return false;
    }
    return true;
  }
  return true;
}

Outcome Undoer::Run() {
  const std::string id = std::to_string(entry_);
  CallerFrame frame(ctx_, kUndoRules, "undo", {{"entry", id}});
  ctx_.history.undoes = entry_;
  if (!frame.Start() || !frame.Open()) return frame.Result();
  // The entry's rows never change: read first, they say which tables the
  // undo holds. Who undid it is read again under the locks.
  EntryHead head;
  bool found = false;
  std::vector<Image> images;
  if (!frame.Step("ERROR:DBSELECT", ReadEntry(frame.conn(), entry_, head, found)) ||
      (found && !frame.Step("ERROR:DBSELECT", ReadImages(frame.conn(), entry_, images))))
    return frame.Result();
  if (!found) return frame.Refuse("ERROR:UNDONOTFOUND\r\nthere is no history entry " + id);
  static const std::set<std::string, std::less<>> kUndoable = {"202", "207", "208", "209", "210", "211", "212", "213"};
  if (head.answer != "OK" || !kUndoable.contains(head.code) || images.empty())
    return frame.Refuse("ERROR:UNDONOTPOSSIBLE\r\nentry " + id + " is no change an undo reverses");
  for (const Image& image : images)
    if (image.table.ends_with("_WORK")) work_ = "1";
  // The locks a membership's add takes, in its order: every step's own
  // locks are among them.
  if (!(work_.empty() ? frame.Begin({"T_USER", "T_SECTION"}) : frame.Begin({"T_USER_WORK", "T_SECTION_WORK"})))
    return frame.Result();
  if (!frame.Step("ERROR:DBSELECT", ReadEntry(frame.conn(), entry_, head, found, frame.HistoryEntryId())))
    return frame.Result();
  if (head.undone_by != 0)
    return frame.Refuse("ERROR:UNDONOTPOSSIBLE\r\nentry " + id + " was undone by entry " +
                        std::to_string(head.undone_by));
  for (const Image& image : images) {
    bool same = true;
    std::string what;
    if (!frame.Step("ERROR:DBSELECT", StillAsLeft(frame.conn(), image, same, what))) return frame.Result();
    if (!same) return frame.Refuse("ERROR:UNDOCHANGED\r\n" + what);
  }
  Enlistment enlistment{
      .conn = frame.conn(), .after_commit = {}, .puts_back_stored_values = true, .tree_redraw_queued = false};
  enlistment_ = &enlistment;
  if (!Inverse(head, images)) return frame.Refuse(answer_);
  if (!frame.Commit()) return frame.Result();
  for (AfterCommitStep& step : enlistment.after_commit) step(ctx_, frame.conn());
  frame.Finish();
  return frame.Result();
}

}  // namespace

Outcome Undo(RequestContext& ctx, long entry_id) { return Undoer(ctx, entry_id).Run(); }

}  // namespace orvane::restore
