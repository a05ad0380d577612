#include "data/schema.h"

#include <algorithm>

#include "base/text.h"
#include "data/db_impl.h"
#include "data/history_schema.h"

namespace orvane::data {
namespace {

const std::vector<std::string> kStamp = {"UPD_KBN", "UPD_YMD", "UPD_HMS", "UPD_USR"};

std::vector<std::string> With(std::vector<std::string> a, const std::vector<std::string>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

// "MENU" + each code of the menu-code list: MENU01 ... MENU79.
std::vector<std::string> MenuColumns() {
  std::vector<std::string> out;
  for (const std::string& code : text::Split(kMenuCodeList, ",")) out.push_back("MENU" + code);
  return out;
}

std::vector<std::string> PassgenColumns() {
  std::vector<std::string> out = {"USER_ID"};
  for (int g = 1; g <= 10; ++g) {
    std::string n = (g < 10 ? "GEN0" : "GEN") + std::to_string(g);
    out.insert(out.end(), {n + "_PASS", n + "_YMD", n + "_USR"});
  }
  return out;
}

// A groupware table cleared by user or section deletes: only the columns
// those deletes name.
TableDef Cleared(std::string name, std::vector<std::string> columns) {
  return TableDef{std::move(name), std::move(columns), {}, {}};
}

std::vector<TableDef> MakeTables() {
  const std::vector<std::string> open_columns = {"OPEN_ID", "OPEN_KBN"};
  std::vector<TableDef> main = {
      // POST_CD is not written by the user statements; the member list sorts by it.
      {"T_USER",
       With({"USER_ID", "NAME_KJ", "NAME_KN", "PASSWORD", "PASSWORD_YMD", "MAIL", "IMAIL_FLG", "MAIL_USE_FLG",
             "MAIL_NM", "EXT_TEL", "POST_NM", "DSP_NM", "POST_CD"},
            kStamp),
       {"USER_ID"},
       // Every sort key of the user list with the key behind it (a page
       // skips through the index alone, then reads its rows by key), and
       // the kana-row range.
       {{"NAME_KN"},
        {"NAME_KJ", "USER_ID"},
        {"POST_NM", "USER_ID"},
        {"DSP_NM", "USER_ID"},
        {"MAIL", "USER_ID"},
        {"UPD_YMD"}},
       {},
       // A kana row's page by name: the range and the order in one index.
       // NAME_KN behind them lets PostgreSQL skip through the index alone.
       {{"KANA_NAME", {std::string(kKanaRowOfName.text), "NAME_KJ", "USER_ID", "NAME_KN"}}}},
      {"T_SECTION",
       With({"SEC_CD", "JOI_SEC", "SEC_NM", "DSP_NM", "SEC_SEQ", "SEC_TREE", "TREE_NM", "BUSHO_CD", "IMAIL_LIST"},
            kStamp),
       {"SEC_CD"},
       {{"JOI_SEC", "SEC_SEQ"}, {"SEC_TREE"}, {"UPD_YMD"}},
       {},
       // The group list's order (shorter paths first), holding what it lists.
       {{"LIST_ORDER", {"length(SEC_TREE)", "JOI_SEC", "SEC_SEQ", "SEC_CD", "SEC_NM", "SEC_TREE"}}}},
      {"T_SECMEMBER",
       With({"SEC_CD", "USER_ID", "SEC_KBN", "USER_SEQ", "POST_CD", "ST_YMD", "ED_YMD"}, kStamp),
       {"SEC_CD", "USER_ID"},
       // The membership changes' check for changes since the page loaded,
       // made under the user and section tables' locks.
       {{"USER_ID"}, {"UPD_YMD"}}},
      {"MENU_USER", With(With({"USER_ID"}, MenuColumns()), kStamp), {"USER_ID"}, {}},
      // No primary key: these two belong to the groupware, whose own
      // modules may keep several rows per user.
      {"T_PASSGEN", PassgenColumns(), {}, {{"USER_ID"}}},
      {"T_SCHOPEN",
       With(With({"KEY_CD", "OPEN_KBN", "OPEN_ID", "SHORI_LVL"}, MenuColumns()), kStamp),
       {},
       {{"KEY_CD"}, {"OPEN_ID"}}},
  };
  std::vector<TableDef> out;
  for (const TableDef& t : main) {
    out.push_back(t);
    TableDef work = t;
    work.name += "_WORK";
    out.push_back(std::move(work));
  }
  out.push_back({"T_POST_MST", {"POST_CD", "POST_NAME", "CLASS_CD"}, {}, {{"POST_CD"}}});
  for (const char* name :
       {"t_bbsopen", "t_rsvopen", "t_linkopen", "t_cabopen", "t_adbkopen", "T_TOPICOPEN", "WF_KENGEN"})
    out.push_back(Cleared(name, open_columns));
  for (const char* name :
       {"rsv_approver_member", "rsv_approve_status", "custom_master", "top_setting", "user_setting", "mail_setting",
        "MYLINK_INFO", "TODO_INFO", "ZAISEKI_INFO", "MESSAGE_MAIL", "MESSAGE_INFO", "ACCESS_INFO", "LOG_GET",
        "LOG_GET_BAT", "LOG_BBS_GET", "LOG_BBS_BAT", "WF_NENKYU", "WF_SYUKKINBO", "WF_SYUKKINBO_RIREKI"})
    out.push_back(Cleared(name, {"USER_ID"}));
  out.push_back(Cleared("custom_info", {"USER_ID", "MEMBER_ID"}));
  out.push_back(Cleared("PSADGP_INFO", {"USER_ID", "ADGP_CD"}));
  out.push_back(Cleared("PSADDR_INFO", {"ADGP_CD"}));
  out.push_back(Cleared("ACCESS_TIME_BAT", {"ACC_BH_USER_ID"}));
  out.push_back(Cleared("ACCESS_PAGE_BAT", {"ACC_BP_USER_ID"}));
  out.push_back(Cleared("EVENT_GPINFO", {"SEC_CD"}));
  out.push_back(Cleared("schedule_info", {"syokuin_cd"}));
  // The server's own: login sessions shared by the instances on one
  // database (keyed by the id's hash; expiry indexed for the cleanup), and
  // the version of the section tree they each draw.
  out.push_back({"ORVANE_SESSION",
                 {"SESSION_HASH", "SESSION_VALUES", "LAST_USED", "EXPIRES"},
                 {"SESSION_HASH"},
                 {{"EXPIRES"}},
                 {"SESSION_VALUES"}});
  out.push_back({std::string(kTreeVersionTable), {"VERSION_ID", "VERSION"}, {"VERSION_ID"}, {}});
  // The server's settings shared by the instances (the password mode).
  out.push_back({"ORVANE_SETTING", {"SETTING_KEY", "SETTING_VALUE"}, {"SETTING_KEY"}, {}});
  return out;
}

bool IsKeyOrIndexed(const TableDef& t, const std::string& column) {
  for (const std::string& k : t.key)
    if (k == column) return true;
  for (const auto& index : t.indexes)
    for (const std::string& c : index)
      if (c == column) return true;
  return false;
}

std::string IndexName(const TableDef& t, const std::vector<std::string>& columns) {
  return "IX_" + t.name + "_" + text::Join(columns, "_");
}

std::string CreateTable(const TableDef& t, const Dialect& dialect) {
  bool sql_server = dialect.kind() == Dialect::Kind::kSqlServer;
  std::string columns;
  for (const std::string& c : t.columns) {
    if (!columns.empty()) columns += ", ";
    // SQL Server limits index keys to 900 bytes, so keyed columns are short there.
    bool long_text = std::find(t.long_text.begin(), t.long_text.end(), c) != t.long_text.end();
    columns += c + (sql_server ? (IsKeyOrIndexed(t, c) ? " nvarchar(100)"
                                  : long_text          ? " nvarchar(max)"
                                                       : " nvarchar(255)")
                               : " TEXT");
    if (!t.key.empty() && std::find(t.key.begin(), t.key.end(), c) != t.key.end()) columns += " NOT NULL";
  }
  if (!t.key.empty()) columns += ", PRIMARY KEY (" + text::Join(t.key, ", ") + ")";
  if (sql_server) return "IF OBJECT_ID(N'" + t.name + "', N'U') IS NULL CREATE TABLE " + t.name + " (" + columns + ")";
  return "CREATE TABLE IF NOT EXISTS " + t.name + " (" + columns + ")";
}

std::string CreateIndex(const TableDef& t, const std::vector<std::string>& columns, const Dialect& dialect) {
  std::string name = IndexName(t, columns);
  std::string body = name + " ON " + t.name + " (" + text::Join(columns, ", ") + ")";
  if (dialect.kind() == Dialect::Kind::kSqlServer)
    return "IF NOT EXISTS (SELECT * FROM sys.indexes WHERE name = N'" + name + "') CREATE INDEX " + body;
  return "CREATE INDEX IF NOT EXISTS " + body;
}

}  // namespace

const std::vector<TableDef>& SchemaTables() {
  static const std::vector<TableDef> tables = MakeTables();
  return tables;
}

std::vector<std::string> SchemaStatements(const Dialect& dialect) {
  std::vector<std::string> out;
  for (const TableDef& t : SchemaTables()) {
    out.push_back(CreateTable(t, dialect));
    for (const auto& index : t.indexes) out.push_back(CreateIndex(t, index, dialect));
    if (dialect.kind() != Dialect::Kind::kSqlServer) {
      for (const ExpressionIndex& index : t.expression_indexes) {
        std::vector<std::string> keys;
        // PostgreSQL wants an expression in parentheses of its own.
        for (const std::string& key : index.keys)
          keys.push_back(key.find('(') == std::string::npos && key.find(' ') == std::string::npos ? key
                                                                                                  : "(" + key + ")");
        out.push_back("CREATE INDEX IF NOT EXISTS IX_" + t.name + "_" + index.name + " ON " + t.name + " (" +
                      text::Join(keys, ", ") + ")");
      }
    }
  }
  // The change history (data/history_schema.h): after the tables its
  // triggers watch.
  for (std::string& s : HistoryStatements(dialect)) out.push_back(std::move(s));
  const std::string table(kTreeVersionTable);
  if (dialect.kind() == Dialect::Kind::kSqlServer) {
    out.push_back("IF NOT EXISTS (SELECT * FROM " + table + ") INSERT INTO " + table +
                  " (VERSION_ID, VERSION) VALUES ('1', '0')");
  } else {
    out.push_back("INSERT INTO " + table + " (VERSION_ID, VERSION) SELECT '1', '0' WHERE NOT EXISTS (SELECT 1 FROM " +
                  table + ")");
  }
  return out;
}

Status CreateSchema(Connection& conn) {
  constexpr char kRoutine[] = "CreateSchema";
  if (Status s = Com_funBeginTrans(conn); !s.ok()) return std::move(s).Prefixed(kRoutine);
  PhysicalConnection& phys = conn.impl()->phys();
  for (const std::string& statement : SchemaStatements(phys.dialect())) {
    Diagnostic d;
    if (!phys.ExecDirect(statement, d)) {
      // The failure to report is the statement's; the pool rolls back again if this fails.
      Com_funRollbackTrans(conn).IgnoreError();
      return DbFailure("Com_funExecsql", d, statement).Prefixed(kRoutine);
    }
  }
  return Com_funCommitTrans(conn).Prefixed(kRoutine);
}

}  // namespace orvane::data
