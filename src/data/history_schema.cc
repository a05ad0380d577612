#include "data/history_schema.h"

#include <algorithm>
#include <cctype>

#include "base/text.h"
#include "data/db_impl.h"
#include "data/schema.h"

namespace orvane::data {
namespace {

// The columns a row image's key is made of: the primary key, else the
// first index (the groupware tables without a key), else every column.
std::vector<std::string> KeyColumns(const TableDef& t) {
  if (!t.key.empty()) return t.key;
  if (!t.indexes.empty()) return t.indexes.front();
  return t.columns;
}

bool Has(const TableDef& t, std::string_view column) {
  return std::find(t.columns.begin(), t.columns.end(), column) != t.columns.end();
}

// The tables the requests write: every table but the server's own and
// the post master, which no request changes.
std::vector<const TableDef*> RecordedTables() {
  std::vector<const TableDef*> out;
  for (const TableDef& t : SchemaTables())
    if (!t.name.starts_with("ORVANE_") && t.name != "T_POST_MST") out.push_back(&t);
  return out;
}

std::string Masked(const std::string& column, const std::string& side) {
  std::string value = side + "." + column;
  if (!IsPasswordColumn(column)) return value;
  return "CASE WHEN " + value + " IS NULL THEN NULL ELSE '" + std::string(kMaskedValue) + "' END";
}

std::string Optional(const TableDef& t, std::string_view column, const std::string& side) {
  return Has(t, column) ? side + "." + std::string(column) : "NULL";
}

std::string Label(const TableDef& t, const std::string& side) {
  if (Has(t, "SEC_NM")) return side + ".SEC_NM";
  if (Has(t, "NAME_KJ")) return side + ".NAME_KJ";
  return "NULL";
}

std::string Key(const TableDef& t, const std::string& side) {
  std::vector<std::string> parts;
  for (const std::string& c : KeyColumns(t)) parts.push_back("coalesce(" + side + "." + c + ", '')");
  return text::Join(parts, " || '/' || ");
}

std::string Image(const TableDef& t, const std::string& side) {
  std::vector<std::string> parts;
  for (const std::string& c : t.columns) parts.push_back("'" + c + "', " + Masked(c, side));
  return "json_object(" + text::Join(parts, ", ") + ")";
}

// The changed columns of an update, as a JSON object of `side`'s values:
// the whole row less each column that kept its value (a changed one
// removes a path no row has). Plain expressions, no subquery: SQLite
// compiles the trigger into every statement that may fire it.
std::string Changed(const TableDef& t, const std::string& side) {
  std::vector<std::string> unchanged;
  for (const std::string& c : t.columns)
    unchanged.push_back("CASE WHEN OLD." + c + " IS NEW." + c + " THEN '$." + c + "' ELSE '$.\"#\"' END");
  return "json_remove(" + Image(t, side) + ", " + text::Join(unchanged, ", ") + ")";
}

// Columns an update writes only because others changed: a section's paths,
// which follow from its parent and name, and the stamp (on the live
// sections the change flag too; on the work copy it marks a delete). An
// update that changed nothing else keeps no image, so a move or a rename
// keeps the rows it moved or renamed, not every descendant's path it
// rewrote.
bool IsDerived(const TableDef& t, const std::string& column) {
  if (column == "UPD_YMD" || column == "UPD_HMS" || column == "UPD_USR") return true;
  if (!t.name.starts_with("T_SECTION")) return false;
  return column == "SEC_TREE" || column == "TREE_NM" || (t.name == "T_SECTION" && column == "UPD_KBN");
}

// The sections' update triggers name the columns that count ("UPDATE OF"),
// so a statement that sets only derived ones (each descendant's path in a
// move) is prepared without them: SQLite compiles a table's triggers into
// every statement that may fire them, which would cost more than the write.
std::string UpdateOf(const TableDef& t) {
  if (!t.name.starts_with("T_SECTION")) return "";
  std::vector<std::string> counted;
  for (const std::string& c : t.columns)
    if (!IsDerived(t, c)) counted.push_back(c);
  return " OF " + text::Join(counted, ", ");
}

std::vector<std::string> ChangeTests(const TableDef& t, const char* differs) {
  std::vector<std::string> out;
  for (const std::string& c : t.columns)
    if (!IsDerived(t, c)) out.push_back(text::ReplaceAll(differs, "$", c));
  return out;
}

// The open entry is the newest one while its IS_OPEN is 1: writers are
// serialised, and the transaction that opened it added it last. Both are
// found through the key alone, so the flag needs no index of its own (one
// page fewer for every change to write).
constexpr char kSqliteOpen[] = "(SELECT IS_OPEN FROM ORVANE_HISTORY ORDER BY ID DESC LIMIT 1) = 1";
constexpr char kSqliteEntry[] = "(SELECT MAX(ID) FROM ORVANE_HISTORY)";
constexpr char kRowColumns[] =
    "ENTRY_ID, ROW_TABLE, ROW_ACTION, ROW_KEY, ROW_LABEL, ROW_SEC_CD, ROW_USER_ID, BEFORE_IMAGE, AFTER_IMAGE";

// SQLite: three triggers a table, their column lists written out (the
// tables are init-db's own there). The entry is the open one: SQLite's
// writers are serialised, so there is at most one.
void SqliteTriggers(const TableDef& t, std::vector<std::string>& out) {
  struct Kind {
    const char* suffix;
    const char* event;
    const char* action;
    const char* side;  // the image the key, label and codes come from
  };
  for (const Kind& k : {Kind{"HI", "INSERT", "insert", "NEW"}, Kind{"HU", "UPDATE", "update", "OLD"},
                        Kind{"HD", "DELETE", "delete", "OLD"}}) {
    std::string name = "ORVANE_" + std::string(k.suffix) + "_" + t.name;
    std::string side = k.side;
    std::string when = kSqliteOpen;
    std::string before = "NULL", after = "NULL";
    std::string label = Label(t, side);
    if (std::string_view(k.event) == "INSERT") after = Image(t, "NEW");
    if (std::string_view(k.event) == "DELETE") before = Image(t, "OLD");
    if (std::string_view(k.event) == "UPDATE") {
      when += " AND (" + text::Join(ChangeTests(t, "OLD.$ IS NOT NEW.$"), " OR ") + ")";
      before = Changed(t, "OLD");
      after = Changed(t, "NEW");
      label = Label(t, "NEW");
    }
    out.push_back("DROP TRIGGER IF EXISTS " + name);
    std::string event = k.event;
    if (event == "UPDATE") event += UpdateOf(t);
    out.push_back("CREATE TRIGGER " + name + " AFTER " + event + " ON " + t.name + " WHEN " + when +
                  " BEGIN INSERT INTO ORVANE_HISTORY_ROW (" + kRowColumns + ") VALUES (" + kSqliteEntry + ", '" +
                  t.name + "', '" + k.action + "', " + Key(t, side) + ", " + label + ", " +
                  Optional(t, "SEC_CD", side) + ", " + Optional(t, "USER_ID", side) + ", " + before + ", " + after +
                  "); END");
  }
}

// PostgreSQL: one function for every table, reading the row whole
// (to_jsonb), so columns a groupware database has beyond init-db's are
// kept too. The entry is the transaction's own setting, which ends with it.
// Each image is built, upper-cased and masked in one query, and the key in
// the function itself: a query inside a trigger runs once a row, and a
// function of SQL called from one is planned anew each time.
constexpr char kPgRow[] = R"(CREATE OR REPLACE FUNCTION orvane_history_row() RETURNS trigger
LANGUAGE plpgsql AS $f$
DECLARE
  entry text := nullif(current_setting('orvane.history_entry', true), '');
  n jsonb; img jsonb; b jsonb; a jsonb; k text;
BEGIN
  IF entry IS NULL THEN RETURN NULL; END IF;
  IF TG_OP = 'UPDATE' THEN
    n := to_jsonb(NEW);
    SELECT jsonb_object_agg(upper(key), CASE WHEN (upper(key) = 'PASSWORD' OR upper(key) LIKE '%\_PASS')
                                              AND value <> 'null'::jsonb THEN to_jsonb('********'::text) ELSE value END),
           jsonb_object_agg(upper(key), CASE WHEN (upper(key) = 'PASSWORD' OR upper(key) LIKE '%\_PASS')
                                              AND n -> key <> 'null'::jsonb THEN to_jsonb('********'::text) ELSE n -> key END)
      INTO b, a FROM jsonb_each(to_jsonb(OLD)) WHERE n -> key IS DISTINCT FROM value;
    IF b IS NULL THEN RETURN NULL; END IF;
    SELECT (SELECT jsonb_object_agg(upper(key), value) FROM jsonb_each(to_jsonb(OLD))),
           (SELECT jsonb_object_agg(upper(key), value) FROM jsonb_each(n))
      INTO img, n;
  ELSE
    -- No key, name, group or user column is a password: the masked image serves for them too.
    SELECT jsonb_object_agg(upper(key), CASE WHEN (upper(key) = 'PASSWORD' OR upper(key) LIKE '%\_PASS')
                                              AND value <> 'null'::jsonb THEN to_jsonb('********'::text) ELSE value END)
      INTO img FROM jsonb_each(CASE WHEN TG_OP = 'INSERT' THEN to_jsonb(NEW) ELSE to_jsonb(OLD) END);
    IF TG_OP = 'INSERT' THEN a := img; ELSE b := img; END IF;
    n := img;
  END IF;
  FOR i IN 0 .. TG_NARGS - 1 LOOP
    k := CASE WHEN i = 0 THEN '' ELSE k || '/' END || coalesce(img ->> TG_ARGV[i], '');
  END LOOP;
  INSERT INTO orvane_history_row (entry_id, row_table, row_action, row_key, row_label, row_sec_cd, row_user_id,
                                  before_image, after_image)
  VALUES (entry::bigint, upper(TG_TABLE_NAME), lower(TG_OP), k, coalesce(n ->> 'SEC_NM', n ->> 'NAME_KJ'),
          img ->> 'SEC_CD', img ->> 'USER_ID', b::text, a::text);
  RETURN NULL;
END
$f$)";

}  // namespace

bool IsPasswordColumn(std::string_view column) {
  std::string upper = text::ToUpperAscii(column);
  return upper == "PASSWORD" || upper.ends_with("_PASS");
}

std::vector<std::string> HistoryStatements(const Dialect& dialect) {
  std::vector<std::string> out;
  switch (dialect.kind()) {
    case Dialect::Kind::kSqlite:
      out.push_back(
          "CREATE TABLE IF NOT EXISTS ORVANE_HISTORY (ID INTEGER PRIMARY KEY AUTOINCREMENT, ENTRY_TIME TEXT, "
          "USER_ID TEXT, ADDRESS TEXT, CODE TEXT, FIELDS TEXT, ANSWER TEXT, UNDOES INTEGER, IS_OPEN INTEGER)");
      out.push_back(
          "CREATE TABLE IF NOT EXISTS ORVANE_HISTORY_ROW (ID INTEGER PRIMARY KEY, ENTRY_ID INTEGER, ROW_TABLE TEXT, "
          "ROW_ACTION TEXT, ROW_KEY TEXT, ROW_LABEL TEXT, ROW_SEC_CD TEXT, ROW_USER_ID TEXT, BEFORE_IMAGE TEXT, "
          "AFTER_IMAGE TEXT)");
      // Where the triggers once found the open entry: the key does it now.
      out.push_back("DROP INDEX IF EXISTS IX_ORVANE_HISTORY_OPEN");
      break;
    case Dialect::Kind::kPostgres:
      out.push_back(
          "CREATE TABLE IF NOT EXISTS ORVANE_HISTORY (ID BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY, "
          "ENTRY_TIME TEXT, USER_ID TEXT, ADDRESS TEXT, CODE TEXT, FIELDS TEXT, ANSWER TEXT, UNDOES BIGINT, "
          "IS_OPEN INTEGER)");
      out.push_back(
          "CREATE TABLE IF NOT EXISTS ORVANE_HISTORY_ROW (ID BIGINT GENERATED BY DEFAULT AS IDENTITY PRIMARY KEY, "
          "ENTRY_ID BIGINT, ROW_TABLE TEXT, ROW_ACTION TEXT, ROW_KEY TEXT, ROW_LABEL TEXT, ROW_SEC_CD TEXT, "
          "ROW_USER_ID TEXT, BEFORE_IMAGE TEXT, AFTER_IMAGE TEXT)");
      break;
    case Dialect::Kind::kSqlServer:
      out.push_back(
          "IF OBJECT_ID(N'ORVANE_HISTORY', N'U') IS NULL CREATE TABLE ORVANE_HISTORY (ID BIGINT IDENTITY PRIMARY KEY, "
          "ENTRY_TIME nvarchar(20), USER_ID nvarchar(100), ADDRESS nvarchar(100), CODE nvarchar(20), "
          "FIELDS nvarchar(max), ANSWER nvarchar(max), UNDOES BIGINT, IS_OPEN INTEGER)");
      out.push_back(
          "IF OBJECT_ID(N'ORVANE_HISTORY_ROW', N'U') IS NULL CREATE TABLE ORVANE_HISTORY_ROW (ID BIGINT IDENTITY "
          "PRIMARY KEY, ENTRY_ID BIGINT, ROW_TABLE nvarchar(100), ROW_ACTION nvarchar(10), ROW_KEY nvarchar(200), "
          "ROW_LABEL nvarchar(255), ROW_SEC_CD nvarchar(100), ROW_USER_ID nvarchar(100), BEFORE_IMAGE nvarchar(max), "
          "AFTER_IMAGE nvarchar(max))");
      break;
  }
  const bool sql_server = dialect.kind() == Dialect::Kind::kSqlServer;
  // Columns most rows leave null (an entry undoes nothing, a section row
  // has no user) are indexed only where set, so a change writes no index
  // entry it will never be looked up by; the filters compare them with
  // "=" or "in", which no null matches. The full index such a column had
  // before is dropped. SQL Server keeps full ones: its plans for bound
  // values cannot use a filtered index.
  struct Index {
    const char* definition;
    bool where_set;
  };
  for (const Index& index :
       {Index{"ORVANE_HISTORY (ENTRY_TIME)", false}, Index{"ORVANE_HISTORY (USER_ID, ID)", false},
        Index{"ORVANE_HISTORY (CODE, ID)", false}, Index{"ORVANE_HISTORY (UNDOES)", true},
        Index{"ORVANE_HISTORY_ROW (ENTRY_ID)", false}, Index{"ORVANE_HISTORY_ROW (ROW_SEC_CD, ENTRY_ID)", true},
        Index{"ORVANE_HISTORY_ROW (ROW_USER_ID, ENTRY_ID)", true},
        Index{"ORVANE_HISTORY_ROW (ROW_TABLE, ROW_KEY, ENTRY_ID)", false}}) {
    std::string definition = index.definition;
    std::string table = definition.substr(0, definition.find(' '));
    std::string columns = definition.substr(definition.find('(') + 1, definition.find(')') - definition.find('(') - 1);
    std::string name = "IX_" + table + "_" + text::ReplaceAll(columns, ", ", "_");
    if (sql_server) {
      out.push_back("IF NOT EXISTS (SELECT * FROM sys.indexes WHERE name = N'" + name + "') CREATE INDEX " + name +
                    " ON " + definition);
    } else if (index.where_set) {
      out.push_back("DROP INDEX IF EXISTS " + name);
      out.push_back("CREATE INDEX IF NOT EXISTS " + name + "_SET ON " + definition + " WHERE " +
                    columns.substr(0, columns.find(',')) + " IS NOT NULL");
    } else {
      out.push_back("CREATE INDEX IF NOT EXISTS " + name + " ON " + definition);
    }
  }
  if (dialect.kind() == Dialect::Kind::kSqlite) {
    for (const TableDef* t : RecordedTables()) SqliteTriggers(*t, out);
  } else if (dialect.kind() == Dialect::Kind::kPostgres) {
    out.push_back(kPgRow);
    out.push_back("DROP FUNCTION IF EXISTS orvane_history_mask(jsonb)");  // what masked images before
    for (const TableDef* t : RecordedTables()) {
      std::vector<std::string> keys;
      for (const std::string& c : KeyColumns(*t)) keys.push_back("'" + c + "'");
      const std::string call = " EXECUTE FUNCTION orvane_history_row(" + text::Join(keys, ", ") + ")";
      // Without an open entry the function is not called at all.
      const std::string open = "current_setting('orvane.history_entry', true) <> ''";
      // The one trigger a table had before inserts and deletes were told from updates.
      out.push_back("DROP TRIGGER IF EXISTS ORVANE_HISTORY_" + t->name + " ON " + t->name);
      out.push_back("CREATE OR REPLACE TRIGGER ORVANE_HISTORY_ID_" + t->name + " AFTER INSERT OR DELETE ON " + t->name +
                    " FOR EACH ROW WHEN (" + open + ")" + call);
      // The rows compared whole but for the derived columns, so a database
      // made before a column of init-db's (or lacking one) takes the trigger.
      std::vector<std::string> derived;
      for (const std::string& c : t->columns)
        if (IsDerived(*t, c)) {
          std::string key = c;  // to_jsonb names a column as PostgreSQL folds it
          for (char& ch : key) ch = static_cast<char>(std::tolower(static_cast<unsigned char>(ch)));
          derived.push_back("'" + key + "'");
        }
      const std::string counted = "ARRAY[" + text::Join(derived, ", ") + "]::text[]";
      out.push_back("CREATE OR REPLACE TRIGGER ORVANE_HISTORY_U_" + t->name + " AFTER UPDATE ON " + t->name +
                    " FOR EACH ROW WHEN (" + open + " AND (to_jsonb(OLD) - " + counted +
                    ") IS DISTINCT FROM (to_jsonb(NEW) - " + counted + "))" + call);
    }
  }
  return out;
}

Status DropHistoryTriggers(Connection& conn) {
  if (!conn.IsOpen()) return DbFailure("DropHistoryTriggers", NotOpen());
  PhysicalConnection& phys = conn.impl()->phys();
  const bool pg = phys.dialect().kind() == Dialect::Kind::kPostgres;
  for (const TableDef* t : RecordedTables()) {
    std::vector<std::string> statements;
    if (pg)
      for (const char* kind : {"", "ID_", "U_"})
        statements.push_back("DROP TRIGGER IF EXISTS ORVANE_HISTORY_" + std::string(kind) + t->name + " ON " + t->name);
    if (!pg)
      for (const char* kind : {"HI", "HU", "HD"})
        statements.push_back("DROP TRIGGER IF EXISTS ORVANE_" + std::string(kind) + "_" + t->name);
    for (const std::string& statement : statements) {
      Diagnostic d;
      if (!phys.ExecDirect(statement, d)) return DbFailure("DropHistoryTriggers", d, statement);
    }
  }
  return Status::Ok();
}

}  // namespace orvane::data
