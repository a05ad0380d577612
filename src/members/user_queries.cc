#include "members/user_queries.h"

#include "base/text.h"
#include "data/password_mode.h"
#include "data/schema.h"
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
  SqlText key;  // a page by key: the sort column, and USER_ID behind it
};
// "mail" sorts by DSP_NM and "term" by MAIL: the pairing the pages use.
constexpr SortKey kUserListSort[] = {
    {"name", " order by NAME_KJ", "NAME_KJ"}, {"id", " order by USER_ID", "USER_ID"},
    {"post", " order by POST_NM", "POST_NM"}, {"mail", " order by DSP_NM", "DSP_NM"},
    {"term", " order by MAIL", "MAIL"},
};
constexpr SqlText kKanaRowIs[] = {" = 0", " = 1", " = 2", " = 3", " = 4", " = 5", " = 6", " = 7", " = 8", " = 9"};

const SortKey* SortKeyOf(const std::string& sort_column) {
  for (const SortKey& key : kUserListSort)
    if (text::EqualsIgnoreCase(sort_column, key.column)) return &key;
  return nullptr;
}

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
  if (const SortKey* key = SortKeyOf(sort_column)) {
    sql << key->order_by;
    if (sort_type == "1") sql << " DESC";
  }
  return sql;
}

data::Sql KeyedUserPageSql(const RequestContext& ctx, const std::string& sort_column, const std::string& sort_type,
                           const std::string& kana_row, long offset, long limit) {
  data::Sql sql;
  const SortKey* key = SortKeyOf(sort_column);
  if (!key) return sql;
  const bool desc = sort_type == "1";
  const bool by_id = key->column == "id";
  sql << "SELECT U.NAME_KJ,U.USER_ID,U.POST_NM,U.DSP_NM,U.MAIL,U.UPD_KBN from (SELECT USER_ID as K_ID," << key->key
      << " as K_SORT from " << Table(ctx.USR_MST);
  const bool kana = kana_row.size() == 1 && kana_row[0] >= '0' && kana_row[0] <= '9';
  if (kana && key->column == "name") {
    // The kana row as the index holds it: the range and the name order in one.
    sql << " where " << data::kKanaRowOfName << kKanaRowIs[kana_row[0] - '0'];
  } else {
    AppendKanaRow(sql, kana_row);
  }
  sql << " order by " << key->key;
  if (desc) sql << " DESC";
  if (!by_id) {
    sql << ",USER_ID";
    if (desc) sql << " DESC";
  }
  sql.PageHere(offset, limit);
  sql << ") K, " << Table(ctx.USR_MST) << " U where U.USER_ID = K.K_ID order by K.K_SORT";
  if (desc) sql << " DESC";
  sql << ",K.K_ID";
  if (desc) sql << " DESC";
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
    const long offset = start_pos < 1 ? 0 : start_pos - 1, limit = start_pos < 1 ? 0 : rows;
    // With a sort key the page is found through the index alone and then
    // read by key, so a deep page does not visit the rows it skips.
    data::Sql keyed = KeyedUserPageSql(ctx, sort_column, sort_type, kana_row, offset, limit);
    if (keyed.Empty()) {
      sql.Page(offset, limit);
    } else {
      sql = std::move(keyed);
    }
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
