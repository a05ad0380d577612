// The password mode of a database: whether its user rows keep passwords in
// clear (`plain`, the pages' historic answers) or as argon2id hashes
// (`argon2id`). It is one row of the settings table ORVANE_SETTING, so every
// instance on one database agrees; init-db writes it, `orvane passwords
// --hash` moves it from plain to argon2id. A database without the row is
// plain. Functions of one connection, used by one thread at a time.
#pragma once

#include <string>
#include <string_view>

#include "base/status.h"
#include "data/db.h"

namespace orvane::data {

// The server's own settings: one row per key (SETTING_KEY, SETTING_VALUE).
inline constexpr std::string_view kSettingTable = "ORVANE_SETTING";
inline constexpr std::string_view kPasswordModeKey = "PASSWORD_MODE";

enum class PasswordMode { kPlain, kArgon2id };

// "plain" or "argon2id".
std::string_view PasswordModeName(PasswordMode mode);

// The mode recorded on the database; kPlain when no row records one.
// `recorded`, when given, tells whether a row did. Inside a transaction it
// reads what that transaction sees, and on PostgreSQL holds the row
// (FOR SHARE) until it ends. This is the server's own bookkeeping,
// not a statement of the system's routines: the failure seam does not
// count it. A failure (no settings table, an unknown value) has
// "ReadPasswordMode" CR LF in front of its trail.
Status ReadPasswordMode(Connection& conn, PasswordMode& mode, bool* recorded = nullptr);

// Records `mode` (replacing any row), inside the caller's transaction.
Status WritePasswordMode(Connection& conn, PasswordMode mode);

}  // namespace orvane::data
