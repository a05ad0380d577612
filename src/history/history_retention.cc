#include "history/history_retention.h"

#include <chrono>
#include <cstdio>
#include <limits>
#include <optional>

#include "base/whole_number.h"
#include "data/history_schema.h"

namespace orvane::history {

int RetentionDays(const ConfigFile& config) {
  std::optional<long long> days =
      ParseWholeNumber(config.Get("HISTORY_RETENTION_DAYS"), 1, 36500, {.blanks_around = true, .minus_sign = false});
  return days ? static_cast<int>(*days) : kDefaultRetentionDays;
}

std::string RetentionCutoff(const Clock& clock, int days) {
  using namespace std::chrono;
  LocalTime now = clock.Now();
  sys_days day = sys_days(year{now.year} / month{static_cast<unsigned>(now.month)} / static_cast<unsigned>(now.day)) -
                 std::chrono::days{days};
  year_month_day ymd(day);
  char out[32];
  std::snprintf(out, sizeof out, "%04d-%02u-%02u %02d:%02d:%02d", static_cast<int>(ymd.year()),
                static_cast<unsigned>(ymd.month()), static_cast<unsigned>(ymd.day()), now.hour, now.minute, now.second);
  return out;
}

Status PurgeHistory(data::Connection& conn, const std::string& cutoff, long& purged) {
  constexpr char kRoutine[] = "PurgeHistory";
  purged = 0;
  data::Sql count, rows, entries;
  count << "select count(ID) as CNT from " << data::Table(data::kHistoryTable) << " where ENTRY_TIME < "
        << data::Quoted(cutoff);
  rows << "delete from " << data::Table(data::kHistoryRowTable) << " where ENTRY_ID in (select ID from "
       << data::Table(data::kHistoryTable) << " where ENTRY_TIME < " << data::Quoted(cutoff) << ")";
  entries << "delete from " << data::Table(data::kHistoryTable) << " where ENTRY_TIME < " << data::Quoted(cutoff);
  Status s = data::Com_funBeginTrans(conn);
  if (s.ok()) s = data::SelectCount(conn, count, purged);
  if (s.ok()) s = data::Com_funExecsql(conn, rows);
  if (s.ok()) s = data::Com_funExecsql(conn, entries);
  if (s.ok()) return data::Com_funCommitTrans(conn).Prefixed(kRoutine);
  data::Com_funRollbackTrans(conn).IgnoreError();  // the failure to report is the statement's
  purged = 0;
  return std::move(s).Prefixed(kRoutine);
}

Status HistoryBytes(data::Connection& conn, long long& bytes) {
  constexpr char kRoutine[] = "HistoryBytes";
  bytes = -1;
  data::Sql sql;
  switch (conn.dialect().kind()) {
    case data::Dialect::Kind::kPostgres:
      sql << "select pg_total_relation_size('orvane_history') + pg_total_relation_size('orvane_history_row')"
             " as CNT";
      break;
    case data::Dialect::Kind::kSqlite:
      // dbstat: every page of the two tables and their indexes.
      sql << "select sum(pgsize) as CNT from dbstat where name like '%ORVANE_HISTORY%'";
      break;
    case data::Dialect::Kind::kSqlServer:
      return Status::Ok();
  }
  std::string value;
  if (Status s = data::SelectFirstValue(conn, sql, "CNT", value); !s.ok()) return std::move(s).Prefixed(kRoutine);
  bytes = ParseWholeNumber(value, 0, std::numeric_limits<long long>::max()).value_or(0);
  return Status::Ok();
}

}  // namespace orvane::history
