// What a history entry keeps of a request besides its rows: the fields as
// a JSON object (first value of each name, in order), a password's value
// masked; and the moment in the history's form.
#pragma once

#include <string>

#include "dispatch/request_fields.h"

namespace orvane {

// "User_PS", "NewPassword": fields that carry a password.
bool IsPasswordField(std::string_view name);
// {"ReqNo":"202","Group_cd":"0001","User_PS":"***",...}
std::string HistoryFieldsJson(const NamedValues& fields);
// "20261125", "140322" -> "2026-11-25 14:03:22"; "" when either is malformed.
std::string HistoryTime(const std::string& ymd, const std::string& hms);

}  // namespace orvane
