#include "members/admin_right.h"

#include "data/db.h"
#include "data/prepared_select.h"
#include "members/login.h"

namespace orvane::members {

using data::Quoted;
using data::Table;

data::Sql AdminRightSql(const std::string& user_id, const std::string& column) {
  data::Sql sql;
  // The join makes a deleted user's left-over rights row count for nothing.
  sql << "select M." << data::Identifier(column) << " from " << Table("T_USER") << " as U ," << Table("MENU_USER")
      << " as M"
      << " where (U.USER_ID = " << Quoted(user_id) << ")"
      << " and (M.USER_ID = U.USER_ID)";
  return sql;
}

Status ReadAdminRight(const ConfigFile& config, const std::string& user_id, const std::string& column, bool& holds) {
  constexpr char kRoutine[] = "ReadAdminRight";
  holds = false;
  if (user_id.empty() || !IsMenuColumn(column)) return Status::Ok();  // nobody, or no such right
  std::string dsn;
  if (Status s = config.ComIniFileLoad("LOCAL_DB_DSN", dsn); !s.ok()) return std::move(s).Prefixed(kRoutine);
  data::Connection conn;
  if (Status s = data::Com_funDbOpen(dsn, "", "", conn); !s.ok()) return std::move(s).Prefixed(kRoutine);
  std::string value;
  bool found = false;
  // Kept planned on the pooled connection: most of a keyed select's cost
  // is the planning. The answer is read anew every time.
  if (Status s = data::SelectFirstValuePrepared(conn, "ORVANE_ADMIN_RIGHT_" + column, AdminRightSql(user_id, column),
                                                column, value, &found);
      !s.ok())
    return std::move(s).Prefixed(kRoutine);
  // Read: a failed close only drops a connection the pool would reuse.
  data::Com_funDbClose(conn).IgnoreError();
  holds = found && value == column.substr(4);
  return Status::Ok();
}

}  // namespace orvane::members
