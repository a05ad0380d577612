#include "data/prepared_select.h"

#include "data/db_impl.h"
#include "data/physical_connection.h"

namespace orvane::data {
namespace {

// "?" markers as PostgreSQL's $1, $2, ... (our statements hold no "?" of
// their own: every value is a marker).
std::string Numbered(const std::string& statement) {
  std::string out;
  int n = 0;
  for (char c : statement) {
    if (c == '?') {
      out += '$' + std::to_string(++n);
    } else {
      out += c;
    }
  }
  return out;
}

}  // namespace

Status SelectFirstValuePrepared(Connection& conn, const std::string& name, const Sql& sql, const std::string& column,
                                std::string& value, bool* found) {
  if (!conn.IsOpen() || !sql.Valid() || conn.dialect().kind() != Dialect::Kind::kPostgres)
    return SelectFirstValue(conn, sql, column, value, found);  // it reports what is wrong, if anything
  PhysicalConnection& phys = conn.impl()->phys();
  const Dialect& dialect = conn.dialect();
  if (!phys.prepared.contains(name)) {
    Diagnostic d;
    const std::string prepare = "PREPARE " + name + " AS " + Numbered(sql.Statement(dialect));
    // 42P05: prepared already (a name set lost on our side only).
    if (!phys.ExecDirect(prepare, d) && d.sqlstate != "42P05") {
      phys.NoteFailure(d);
      return DbFailure("SelectFirstValuePrepared", d, sql.Render());
    }
    phys.prepared.insert(name);
  }
  Sql execute;
  execute << "EXECUTE " << Identifier(name);
  // A statement without values takes no parentheses: "EXECUTE name()" is refused.
  const std::vector<std::string> values = sql.Parameters(dialect);
  for (size_t i = 0; i < values.size(); ++i) {
    if (i == 0) {
      execute << "(";
    } else {
      execute << ",";
    }
    execute << Quoted(values[i]);
  }
  if (!values.empty()) execute << ")";
  Status s = SelectFirstValue(conn, execute, column, value, found);
  if (!s.ok()) phys.prepared.erase(name);  // prepared anew next time, in case it is gone
  return s;
}

}  // namespace orvane::data
