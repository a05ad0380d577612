#include "restore/deleted_list.h"

#include <set>

#include "base/whole_number.h"
#include "data/db.h"
#include "data/history_schema.h"
#include "restore/entry_images.h"

namespace orvane::restore {

using data::Quoted;
using data::Table;

Status ReadDeleted(const ConfigFile& config, const Clock& clock, const std::string& kind, std::vector<Deleted>& out) {
  out.clear();
  const bool user = kind == "user";
  const std::string table = user ? "T_USER" : "T_SECTION", code = user ? "206" : "203";
  std::string dsn;
  if (Status s = config.ComIniFileLoad("LOCAL_DB_DSN", dsn); !s.ok()) return s;
  data::Connection conn;
  if (Status s = data::Com_funDbOpen(dsn, "", "", conn); !s.ok()) return s;
  const std::string since = RetentionStart(config, clock);
  data::Sql sql;
  sql << "select R.ROW_KEY, R.ROW_LABEL, H.ENTRY_TIME, H.ID,"
      << " (select count(*) from " << Table(data::kHistoryTable) << " U where U.UNDOES = H.ID and U.ANSWER = 'OK')"
      << " as RESTORED from " << Table(data::kHistoryRowTable) << " R join " << Table(data::kHistoryTable)
      << " H on H.ID = R.ENTRY_ID where R.ROW_TABLE = " << Quoted(table) << " and R.ROW_ACTION = 'delete'"
      << " and H.CODE = " << Quoted(code) << " and H.ANSWER = 'OK' and H.ENTRY_TIME >= " << Quoted(since)
      << " order by H.ID desc";
  std::set<std::string> seen;
  Status s = data::SelectRows(
      conn, sql, {"ROW_KEY", "ROW_LABEL", "ENTRY_TIME", "ID", "RESTORED"}, [&](const std::vector<std::string>& v) {
        Deleted d{v[0], v[1], v[2], static_cast<long>(ParseWholeNumber(v[3], 0, 999999999999).value_or(0)), false};
        d.restorable = seen.insert(d.key).second && ParseWholeNumber(v[4], 0, 999999999999).value_or(0) == 0;
        out.push_back(std::move(d));
        return true;
      });
  // A key in use again is not restorable.
  for (Deleted& d : out) {
    if (!s.ok() || !d.restorable) continue;
    RowValues row;
    bool found = false;
    s = ReadRow(conn, table, d.key, {}, row, found);
    d.restorable = !found;
  }
  Status closed = data::Com_funDbClose(conn);
  return s.ok() ? closed : s;
}

}  // namespace orvane::restore
