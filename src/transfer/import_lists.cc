#include "transfer/import_lists.h"

#include <algorithm>

#include "accounts/mail_list_members.h"
#include "base/text.h"
#include "data/schema.h"

namespace orvane::transfer {
namespace {

const std::string& Value(FileKind kind, const Row& row, std::string_view column) {
  return row[SpecOf(kind).ExportedIndex(column)];
}

// The routine's outcome: empty, or its trail (the code a missing key
// wrote when there is none). What it writes answers nothing.
template <class Run>
std::string Outcome(RequestContext& ctx, Run run) {
  const size_t answered = ctx.response().size();
  DiscardedWrites discarded(ctx);
  Status s = run();
  if (s.ok()) return {};
  return s.trail().empty() ? ctx.response().substr(answered) : s.trail();
}

std::string Server(RequestContext& ctx) {
  std::string server;
  if (!ctx.config().ComIniFileLoad("ML_SERVER", server).ok()) server.clear();
  return text::Trim(server);
}

}  // namespace

std::vector<std::string> ListsOfLine(const PlanLine& line, const Organisation& before, const Organisation& after) {
  constexpr FileKind kS = FileKind::kSections, kM = FileKind::kMemberships;
  std::vector<std::string> lists;
  if (line.kind == kS && (line.action == Action::kAdd || line.action == Action::kChange)) {
    // As a group's registration: a new name, not a list taken away.
    const std::string list = text::Trim(Value(kS, line.after, "mailing_list"));
    if (!list.empty() && (line.before.empty() || text::Trim(Value(kS, line.before, "mailing_list")) != list))
      lists.push_back(list);
  } else if (line.kind == FileKind::kUsers && line.action == Action::kDelete) {
    auto list_of = [&](const std::string& section) -> std::string {
      for (const Organisation* org : {&after, &before})
        for (const Row& r : org->Of(kS))
          if (Value(kS, r, "code") == section) return text::Trim(Value(kS, r, "mailing_list"));
      return {};
    };
    for (const Row& m : before.Of(kM)) {
      if (Value(kM, m, "user") != line.key) continue;
      std::string list = list_of(Value(kM, m, "section"));
      if (!list.empty() && std::find(lists.begin(), lists.end(), list) == lists.end()) lists.push_back(list);
    }
  }
  return lists;
}

std::string SendListCommand(RequestContext& ctx, data::Connection& conn, FileKind kind, const std::string& key,
                            const std::string& list, const std::string& today) {
  const std::string server = Server(ctx);
  if (server.empty()) return "list " + list + ": ML_SERVER is not set";
  std::string failed;
  if (kind == FileKind::kUsers) {
    failed = Outcome(ctx, [&] { return accounts::funDelMailListUser(ctx, list, text::Trim(key) + "@" + server); });
  } else {
    // The section's members of today, in their order, as a group's
    // registration puts them on its new list.
    data::Sql sql;
    sql << "select USER_ID from " << data::Table(ctx.SEC_MEM) << " where SEC_CD = " << data::Quoted(key)
        << " and ST_YMD <= " << data::Quoted(today) << " and ED_YMD >= " << data::Quoted(today) << " order by USER_SEQ";
    std::vector<std::string> addresses;
    Status read = data::SelectRows(conn, sql, {"USER_ID"}, [&](const std::vector<std::string>& v) {
      addresses.push_back(text::Trim(v[0]) + "@" + server);
      return true;
    });
    if (!read.ok()) return "list " + list + ": " + read.trail();
    if (addresses.empty()) return {};
    failed = Outcome(ctx, [&] { return accounts::funAddMailListUser(ctx, list, text::Join(addresses, ","), "0"); });
  }
  return failed.empty() ? failed : "list " + list + ": " + failed;
}

}  // namespace orvane::transfer
