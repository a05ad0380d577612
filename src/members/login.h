// The login routines: Com_funChkPasswd (is this id and password a user?) and
// Com_funGetUserData (the user's sections current on a date), and LogIn,
// which the HTTP front end's POST /login runs to fill a session with them.
// Each call works on its own connection: thread-safe.
#pragma once

#include <string>
#include <vector>

#include "base/clock.h"
#include "data/db.h"
#include "dispatch/config.h"
#include "dispatch/session.h"

namespace orvane::members {

// The six fields of the user row, in the statement's order.
struct PasswordRow {
  std::string NAME_KJ, NAME_KN, PASSWORD_YMD, MAIL, USER_ID, PASSWORD;
};

// Looks the pair up in `user_table`. Succeeds when the lookup ran (`found`
// tells whether a row matched, and `row` holds it); a database failure has
// "Com_funChkPasswd" CR LF in front of its trail.
Status Com_funChkPasswd(data::Connection& conn, const std::string& user_table, const std::string& user_id,
                        const std::string& password, PasswordRow& row, bool& found);

// The argon2id mode's lookup: the row of `user_id`, then the password
// verified against its stored hash in the server (never compared in SQL,
// so the hash itself typed as a password fails). `row` gets the row with
// PASSWORD empty when it matched. A failure has "CheckHashedPassword" CR LF
// in front of its trail.
Status CheckHashedPassword(data::Connection& conn, const std::string& user_table, const std::string& user_id,
                           const std::string& password, PasswordRow& row, bool& found);

struct UserSection {
  std::string M_SEC_CD, S_SEC_NM, S_SEC_TREE, S_SEC_DSP;
};

// The user's sections current on `date` (yyyymmdd), the primary one first.
// A failure has "Com_funGetUserData" CR LF in front of its trail.
Status Com_funGetUserData(data::Connection& conn, const std::string& member_table, const std::string& section_table,
                          const std::string& user_id, const std::string& date, std::vector<UserSection>& sections);

// The session value that says the user held the administrator right when
// logging in: "1", or empty.
inline constexpr std::string_view kAdminRight = "ORVANE_ADMIN";

// Whether `column` names a column of the menu-rights table (MENU01 ... MENU79).
bool IsMenuColumn(const std::string& column);

enum class LoginOutcome {
  kOk,        // `session` holds the user
  kRefused,   // no such id and password
  kNoConfig,  // LOCAL_DB_DSN missing
  kDbOpen,    // the database could not be opened
  kDbSelect,  // a lookup failed
};

// The login form's fields: User_cd and User_PS.
struct LoginForm {
  std::string user_id, password;
};

// Checks the pair on the live tables (an empty password never matches; in
// the argon2id password mode by CheckHashedPassword, else by
// Com_funChkPasswd) and, on a match, sets PUB_USR_ID, PUB_USR_PW (plain
// mode only), PUB_USR_NM, PUB_MAIL and, from the first current section,
// PUB_SEC_CD, PUB_SEC_NM, PUB_DSP_NM, PUB_SEC_TREE in `session`, and
// kAdminRight when the user's menu-rights row holds the menu number of
// `admin_column` in it (MENU50 holding "50"). `error` gets the database's
// error text for the failures.
LoginOutcome LogIn(const ConfigFile& config, const Clock& clock, const LoginForm& form, const std::string& admin_column,
                   Session& session, std::string& error);

// The answer text for an outcome: "OK", "ERROR:LOGIN", ...
const char* LoginAnswer(LoginOutcome outcome);

}  // namespace orvane::members
