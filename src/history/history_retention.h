// How long the change history is kept, and the purge of what is older.
// The period is HISTORY_RETENTION_DAYS of ORVANE.ini (whole days, default
// 90); `orvane history --purge` and `orvane serve` (once a day) purge.
#pragma once

#include <string>

#include "base/clock.h"
#include "base/status.h"
#include "data/db.h"
#include "dispatch/config.h"

namespace orvane::history {

inline constexpr int kDefaultRetentionDays = 90;

// The configured period in days; a missing, empty or malformed value (or
// one below 1) reads as the default.
int RetentionDays(const ConfigFile& config);
// The oldest moment kept: now less `days`, as "YYYY-MM-DD HH:MM:SS".
std::string RetentionCutoff(const Clock& clock, int days);

// Deletes, in one transaction, the entries older than `cutoff` and their
// row images; `purged` counts the entries.
Status PurgeHistory(data::Connection& conn, const std::string& cutoff, long& purged);

// The history's size in the database, in bytes (its tables and indexes:
// PostgreSQL's relation sizes, SQLite's pages); -1 where the database
// cannot tell.
Status HistoryBytes(data::Connection& conn, long long& bytes);

}  // namespace orvane::history
