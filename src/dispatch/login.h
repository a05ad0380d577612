// The login routines: Com_funChkPasswd (is this id and password a user?) and
// Com_funGetUserData (the user's sections current on a date), and LogIn,
// which the HTTP front end's POST /login runs to fill a session with them.
// Each call works on its own connection: thread-safe.
#pragma once

#include <string>
#include <vector>

#include "data/db.h"
#include "dispatch/clock.h"
#include "dispatch/config.h"
#include "dispatch/session.h"

namespace orvane {

// The six fields of the user row, in the statement's order.
struct PasswordRow {
  std::string NAME_KJ, NAME_KN, PASSWORD_YMD, MAIL, USER_ID, PASSWORD;
};

// Looks the pair up in `user_table`. Returns 0 when the lookup ran (`found`
// tells whether a row matched, and `row` holds it), 1 on a database failure
// with `error` prefixed "Com_funChkPasswd" CR LF.
int Com_funChkPasswd(data::Connection& conn, const std::string& user_table, const std::string& user_id,
                     const std::string& password, PasswordRow& row, bool& found, std::string& error);

struct UserSection {
  std::string M_SEC_CD, S_SEC_NM, S_SEC_TREE, S_SEC_DSP;
};

// The user's sections current on `date` (yyyymmdd), the primary one first.
// Returns 0, or 1 with `error` prefixed "Com_funGetUserData" CR LF.
int Com_funGetUserData(data::Connection& conn, const std::string& member_table, const std::string& section_table,
                       const std::string& user_id, const std::string& date, std::vector<UserSection>& sections,
                       std::string& error);

enum class LoginOutcome {
  kOk,        // `session` holds the user
  kRefused,   // no such id and password
  kNoConfig,  // LOCAL_DB_DSN missing
  kDbOpen,    // the database could not be opened
  kDbSelect,  // a lookup failed
};

// Checks the pair on the live tables and, on a match, sets PUB_USR_ID,
// PUB_USR_PW, PUB_USR_NM, PUB_MAIL and, from the first current section,
// PUB_SEC_CD, PUB_SEC_NM, PUB_DSP_NM, PUB_SEC_TREE in `session`. `error`
// gets the database's error text for the failures.
LoginOutcome LogIn(const ConfigFile& config, const Clock& clock, const std::string& user_id,
                   const std::string& password, Session& session, std::string& error);

// The answer text for an outcome: "OK", "ERROR:LOGIN", ...
const char* LoginAnswer(LoginOutcome outcome);

}  // namespace orvane
