// One row held against its delete for the rest of a transaction, where a
// whole table's lock would make every other writer of the table wait.
#pragma once

#include <string>
#include <string_view>

#include "data/db.h"

namespace orvane::data {

// Holds the row of `table` (a known table) whose `key_column` is `key`
// against its delete until the open transaction ends, and no other row:
// writers of other rows, and changes of the row's other columns, go on
// (PostgreSQL: SELECT ... FOR KEY SHARE). Where rows are not locked one by
// one this is LockTable (SQL Server), and nothing on SQLite, whose BEGIN
// IMMEDIATE holds the whole database already. A missing row holds nothing.
// A failure's trail is that of Com_funExecsql with the lock statement.
Status LockKeyRow(Connection& conn, std::string_view table, std::string_view key_column, const std::string& key);

}  // namespace orvane::data
