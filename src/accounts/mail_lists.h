// The mailing lists of the mail server: one sub-folder per list under the
// "Lists" folder of ML_FOLDER, members in users.lst (and its copy users.txt),
// one address a line, each line ended by CR LF. Reached directly or through
// the exe proxy (ML_ISLOCAL read as a truth value).
//
// This file lists the lists and reads a list's members; the changes of
// members are in mail_list_members.h. Statuses: code 0 on success, -1 on
// failure, with an empty trail: configuration failures write their own
// "ERROR:READINFOFILE_..." code to the response, as the callers expect, and
// the other failures have no text.
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "base/status.h"
#include "dispatch/request_context.h"

namespace orvane::accounts {

// Paths in the system's "\" form: one "\" is put after ML_FOLDER only when
// it does not end in one.
std::string ListRootPath(std::string_view folder);                               // ...\Lists
std::string ListFolderPath(std::string_view folder, std::string_view listName);  // ...\Lists\name
std::string MemberFilePath(std::string_view folder, std::string_view listName,   // ...\Lists\name\users.lst
                           std::string_view fileName = "users.lst");

// A list name must name one folder: not empty, no "\" or "/", not "." or
// "..". Any other name is treated as a list that does not exist.
bool IsPlainListName(std::string_view listName);

// The names of the existing lists, each followed by CR LF, in folder order;
// only when ML_MODE is "2" (otherwise `listText` is left as it is). Through
// the proxy: "FOLIST <root>\*" and its "|"-separated reply. Socket failures
// are not reported: they look like no lists at all. Fails only when a
// configuration key is missing.
Status funMailListGet(RequestContext& ctx, std::string& listText);

// The member lines of `listName` (users.lst split at CR LF). The list is
// taken to exist when one of the listed names contains `listName`, ignoring
// case. Fails when it does not, on a socket or read failure or a missing
// key.
Status funMailListUserGet(RequestContext& ctx, std::string_view listName, std::vector<std::string>& members);

}  // namespace orvane::accounts
