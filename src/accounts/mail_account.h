// Mail accounts on the mail server: adduser.exe run through the exe proxy
// or on this machine (ML_ISLOCAL), for the user registration.
#pragma once

#include <string>
#include <string_view>

#include "accounts/user_form.h"
#include "base/status.h"
#include "dispatch/request_context.h"

namespace orvane::accounts {

// The account-delete command line after the tool folder, in the form of the
// channel in use: the proxy form has no "-u", the local form has.
std::string AccountDeleteCommand(bool local, std::string_view userID);

// `mode`: "1" delete the account, "2" change its password, "3" create it.
// `toolFolder`: the mail server's folder ending in "\", prefix of the
// command line. `user`: the user form; its ID is the account name, its
// password the account's.
// Proxy: the reply must begin with "OK:"; a failure's trail is the refused
// reply or the socket error (funExeProxyCommand), and an unknown mode fails
// with "funAdmMailMember" CR LF "Invalid Case" and sends nothing. `output`
// is left as it was. Local: `output` receives the tool's output, which must
// begin with "OK:" with exit code 0; a failure's trail is that output. An
// unknown mode runs nothing and fails with an empty trail.
Status funAdmMailMember(const RequestContext& ctx, std::string_view mode, std::string_view toolFolder,
                        const UserForm& user, std::string& output);

}  // namespace orvane::accounts
