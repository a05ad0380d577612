// A user's menu rights for the rights form (request code 110): the user's
// rights string read from the menu table, laid over the menu catalogue
// ("App_A_strMenuinfo") that the hosting groupware supplies.
#pragma once

#include <string>

#include "data/sql.h"
#include "dispatch/application_store.h"
#include "dispatch/request_context.h"

namespace orvane::members {

// Writes USER_ID,/numbers/,/names/,/granted/ where granted holds each number
// the user has and "ZZ" for each one not granted.
void GetMenuProperty(RequestContext& ctx, const std::string& user_id);

// Request 213: stores the rights form's result. Each menu column gets its
// own number when `rights_text` holds it between two "/", "ZZ" otherwise;
// `marker` goes to UPD_KBN. A user without a row is not created: "OK".
void ChangeUserMenu(RequestContext& ctx, const std::string& marker, const std::string& user_id,
                    const std::string& rights_text);
data::Sql ChangeUserMenuSql(const RequestContext& ctx, const std::string& marker, const std::string& user_id,
                            const std::string& rights_text, const std::string& date, const std::string& time);

// USER_ID and MENU: "/" + MENU01 + "/" + ... + MENU79 + "/", built by the database.
data::Sql MenuPropertySql(const RequestContext& ctx, const std::string& user_id);

// The three "/"-framed texts of the answer for one rights string. The
// facility-reservation menus (02, 20, 11 to 18) are one entry "02" named
// "施設予約", decided by menu 02 alone; 00, 52 and 53 are never shown.
struct MenuRights {
  std::string numbers, names, granted;
};
MenuRights WalkMenuCatalogue(const MenuCatalogue& catalogue, const std::string& rights);

}  // namespace orvane::members
