// Adding members to and removing members from a mailing list: users.lst is
// rewritten whole and then users.txt with the same content, directly or by
// two FWRITE exchanges through the exe proxy. Addresses are compared whole
// and without regard to case. Used by group, membership and user
// registration. Statuses: code 0 on success, -1 on failure with the error
// text as the trail; a missing configuration key writes its
// "ERROR:READINFOFILE_..." code to the response and fails with an empty
// trail.
#pragma once

#include <string>
#include <string_view>

#include "base/status.h"
#include "dispatch/request_context.h"

namespace orvane::accounts {

// Adds the comma-separated `addresses` that are not yet members, after the
// current members in the order given. With `addresses` empty: `clearFlag`
// "1" empties both member files, anything else changes nothing.
Status funAddMailListUser(RequestContext& ctx, std::string_view listName, std::string_view addresses,
                          std::string_view clearFlag);

// Removes the comma-separated `addresses` from the list; removing the last
// member leaves both files empty.
Status funDelMailListUser(RequestContext& ctx, std::string_view listName, std::string_view addresses);

}  // namespace orvane::accounts
