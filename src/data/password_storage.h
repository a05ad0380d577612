// What init-db and `orvane passwords --hash` do to the stored passwords:
// make the password columns wide enough for a hash, choose a new
// database's password mode, and turn a plain database's passwords into
// argon2id hashes in place. The password columns are T_USER.PASSWORD and
// T_PASSGEN's GEN01_PASS ... GEN10_PASS, with their _WORK twins.
#pragma once

#include <string>
#include <vector>

#include "base/status.h"
#include "data/db.h"
#include "data/password_mode.h"

namespace orvane::data {

// Widens every password column declared shorter than a hash (a table made
// by the groupware with, say, varchar(20)) to unbounded text (PostgreSQL)
// or nvarchar(255) (SQL Server); the values stay as they are. SQLite keeps
// any length in any column: nothing to do. `widened` names the columns
// changed ("T_USER.PASSWORD").
Status WidenPasswordColumns(Connection& conn, std::vector<std::string>& widened);

// init-db's choice, in one transaction. A recorded mode stays (asking for
// plain on an argon2id database is refused: hashes cannot be undone).
// Without one: plain when asked for, plain too when the user tables hold
// users already (their passwords are in clear; `existing_users` is set),
// argon2id otherwise; then it is recorded.
struct ModeChoice {
  PasswordMode mode = PasswordMode::kPlain;
  bool was_recorded = false;
  bool existing_users = false;
};
Status ChoosePasswordMode(Connection& conn, bool plain_requested, ModeChoice& choice);

// How many values each table had converted.
struct ConversionCount {
  std::string table;
  long converted = 0;
};

// In one transaction, with the user tables locked against other writers:
// every password value that is neither empty nor a hash already becomes
// its argon2id hash (computed on as many threads as there are cores), then
// the mode becomes argon2id. Running it again converts nothing.
Status HashStoredPasswords(Connection& conn, std::vector<ConversionCount>& counts);

}  // namespace orvane::data
