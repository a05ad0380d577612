#include "members/user_queries.h"

#include "base/text.h"
#include "data/password_mode.h"
#include "dispatch/query_frame.h"

namespace orvane::members {
namespace {

using data::Quoted;
using data::SqlText;
using data::Table;

// One row of the syllabary per code, by the first katakana of NAME_KN. The
// last row is open at the top on purpose: ヲ, ン and whatever sorts after
// them belong to it. Names below ア (ァ, Latin letters, digits) are in none.
constexpr SqlText kKanaRows[] = {
    " where (((NAME_KN)>='ア') AND ((NAME_KN)<'カ'))", " where (((NAME_KN)>='カ') AND ((NAME_KN)<'サ'))",
    " where (((NAME_KN)>='サ') AND ((NAME_KN)<'タ'))", " where (((NAME_KN)>='タ') AND ((NAME_KN)<'ナ'))",
    " where (((NAME_KN)>='ナ') AND ((NAME_KN)<'ハ'))", " where (((NAME_KN)>='ハ') AND ((NAME_KN)<'マ'))",
    " where (((NAME_KN)>='マ') AND ((NAME_KN)<'ヤ'))", " where (((NAME_KN)>='ヤ') AND ((NAME_KN)<'ラ'))",
    " where (((NAME_KN)>='ラ') AND ((NAME_KN)<'ワ'))", " where ((NAME_KN)>='ワ')",
};

struct SortKey {
  std::string_view column;  // the pages' keyword
  SqlText order_by;
};
// "mail" sorts by DSP_NM and "term" by MAIL: the pairing the pages use.
constexpr SortKey kUserListSort[] = {
    {"name", " order by NAME_KJ"}, {"id", " order by USER_ID"}, {"post", " order by POST_NM"},
    {"mail", " order by DSP_NM"},  {"term", " order by MAIL"},
};

const data::Columns kUserList = {"NAME_KJ", "USER_ID", "POST_NM", "DSP_NM", "MAIL", "UPD_KBN"};
const data::Columns kUserProperty = {"USER_ID", "NAME_KJ", "NAME_KN", "PASSWORD",     "MAIL",    "IMAIL_FLG",
                                     "EXT_TEL", "POST_NM", "DSP_NM",  "MAIL_USE_FLG", "UPD_KBN", "MAIL_NM"};

}  // namespace

void AppendKanaRow(data::Sql& sql, const std::string& kana_row) {
  if (kana_row.size() == 1 && kana_row[0] >= '0' && kana_row[0] <= '9') sql << kKanaRows[kana_row[0] - '0'];
}

data::Sql AllCountSql(const RequestContext& ctx, const std::string& kind, const std::string& kana_row) {
  data::Sql sql;
  // "G" and "M" are accepted kinds that count nothing: they, like any other
  // kind, leave the statement empty and the select refuses it.
  if (text::EqualsIgnoreCase(kind, "U")) {
    sql << "SELECT count(USER_ID)"
        << " from " << Table(ctx.USR_MST);
    AppendKanaRow(sql, kana_row);
  }
  return sql;
}

data::Sql AllUserListSql(const RequestContext& ctx, const std::string& sort_column, const std::string& sort_type,
                         const std::string& kana_row) {
  data::Sql sql;
  sql << "SELECT " << kUserList << " from " << Table(ctx.USR_MST);
  AppendKanaRow(sql, kana_row);
  for (const SortKey& key : kUserListSort) {
    if (!text::EqualsIgnoreCase(sort_column, key.column)) continue;
    sql << key.order_by;
    if (sort_type == "1") sql << " DESC";
    break;
  }
  return sql;
}

data::Sql PostMasterSql(const RequestContext& ctx) {
  data::Sql sql;
  sql << "SELECT POST_CD,POST_NAME"
      << " from " << Table(ctx.PST_MST) << " order by CLASS_CD,POST_CD";
  return sql;
}

data::Sql UserPropertySql(const RequestContext& ctx, const std::string& user_id) {
  data::Sql sql;
  sql << "select " << kUserProperty << " from " << Table(ctx.USR_MST) << " where USER_ID = " << Quoted(user_id);
  return sql;
}

void GetAllCount(RequestContext& ctx, const std::string& kind, const std::string& kana_row) {
  QueryFrame frame(ctx);
  data::Recordset rs;
  if (!frame.Open() || !frame.Select(AllCountSql(ctx, kind, kana_row), rs)) return;
  Array2D cells;
  if (frame.Failed(data::Com_funRecodsetToArray(rs, cells))) {
    frame.FailAndClose("ERROR:DBSELECTARRAY");
    return;
  }
  if (!frame.CloseRecordset(rs)) return;
  frame.Close();
  // Written even behind "ERROR:DBCLOSE": the page gets the two run together.
  ctx.Write(cells.empty() || cells[0].empty() ? std::string() : cells[0][0]);
}

void GetAllUserList(RequestContext& ctx, const std::string& sort_column, const std::string& sort_type,
                    const std::string& kana_row, short start_pos, short page_rows) {
  QueryFrame frame(ctx);
  if (!frame.Open()) return;
  data::Sql sql = AllUserListSql(ctx, sort_column, sort_type, kana_row);
  data::Recordset rs;
  // A page has at least one row whenever there is one, even for a size of
  // 0 or below: the size is tested after a row is added.
  const long rows = page_rows < 1 ? 1 : page_rows;
  const bool paged = frame.connection().dialect().HasPageClause();
  if (paged) {
    // The database skips to S_pos and stops after the page, so no more rows
    // than the page are read or held. A position before the first row asks
    // for none, and, like one past the last, finds none.
    sql.Page(start_pos < 1 ? 0 : start_pos - 1, start_pos < 1 ? 0 : rows);
    if (!frame.Select(sql, rs)) return;
  } else if (!frame.SelectP(sql, rs)) {
    return;
  } else if (frame.Failed(data::Com_funSetAbsolutePos(rs, start_pos))) {
    frame.FailAndClose("ERROR:ABSOLUTEPOS");
    return;
  }
  std::string list;
  int read = 0;
  auto add = [&](const std::vector<std::string>& values) {
    AppendListRow(list, values);
    return ++read < rows;
  };
  std::vector<std::string> values;
  bool eof = false;
  if (paged) {
    // The page's first row is the positioned row: none means the position
    // is not in the result.
    if (!frame.Fetch(rs, kUserList.FetchNames(), values, eof)) return;
    if (eof) return frame.FailAndClose("ERROR:ABSOLUTEPOS");
    add(values);
  }
  if (read < rows && !frame.FetchRows(rs, kUserList.FetchNames(), add)) return;
  if (!frame.CloseRecordset(rs)) return;
  frame.Close();
  ctx.Write(list);
}

void GetPostMaster(RequestContext& ctx) { WriteListQuery(ctx, PostMasterSql(ctx), {"POST_CD", "POST_NAME"}); }

void GetUserProperty(RequestContext& ctx, const std::string& user_id) {
  // RunQuery's steps, with the password mode read on the same connection
  // first: with hashes stored the password field goes out empty (the
  // columns keep their count and order).
  QueryFrame frame(ctx);
  if (!frame.Open()) return;
  data::PasswordMode passwords = data::PasswordMode::kPlain;
  if (frame.Failed(data::ReadPasswordMode(frame.connection(), passwords))) return frame.FailAndClose("ERROR:DBSELECT");
  data::Recordset rs;
  if (!frame.Select(UserPropertySql(ctx, user_id), rs)) return;
  // Deliberately no end test: an unknown user gives twelve empty values.
  std::vector<std::string> values;
  bool eof = false;
  if (!frame.Fetch(rs, kUserProperty.FetchNames(), values, eof)) return;
  if (passwords == data::PasswordMode::kArgon2id) values[3].clear();  // PASSWORD
  if (!frame.CloseRecordset(rs)) return;
  frame.Close();
  ctx.Write(text::Join(values, ","));
}

}  // namespace orvane::members
