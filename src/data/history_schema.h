// The change history's tables and the triggers that fill them.
//
// ORVANE_HISTORY holds one entry per changing request (who, when, where,
// the request code, its fields with passwords masked, the answer);
// ORVANE_HISTORY_ROW one row image per row a change inserted, updated or
// deleted, written by triggers on every table the requests write, into the
// entry the open transaction named (docs/history.md). Passwords (PASSWORD,
// GEN..._PASS) never reach an image: a value there reads "********".
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "data/db.h"
#include "data/dialect.h"

namespace orvane::data {

inline constexpr std::string_view kHistoryTable = "ORVANE_HISTORY";
inline constexpr std::string_view kHistoryRowTable = "ORVANE_HISTORY_ROW";
// What an image holds in place of a password or its hash.
inline constexpr std::string_view kMaskedValue = "********";

// True for a column whose value is a password or its hash.
bool IsPasswordColumn(std::string_view column);

// The tables, indexes, trigger functions and triggers on `dialect`, each
// safe to run again (triggers are replaced, so an upgrade gets the current
// ones). SQL Server gets the tables without triggers: its entries carry no
// row images.
std::vector<std::string> HistoryStatements(const Dialect& dialect);

// Drops the triggers (the tables stay): the benchmark's "without history"
// figures. init-db makes them again.
Status DropHistoryTriggers(Connection& conn);

}  // namespace orvane::data
