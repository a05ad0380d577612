// One exchange with the exe proxy, the small TCP service on the mail-server
// machine that runs one command line per connection and answers with the
// tool's output. Used by the account and alias routines (mail_account.h);
// the file commands of the mailing lists use the same socket (proxy_files.h).
//
// Statuses as every mail routine's: code 0 on success, -1 on failure with
// the error text as the trail.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "accounts/socket.h"
#include "base/status.h"
#include "dispatch/request_context.h"

namespace orvane::accounts {

// Releases whatever `socket` holds and makes a new one with the time-out of
// ML_EXEPROXY_TIMEOUT. A failure's trail is "エラー番号 " number " "
// description.
Status funCreateObject_BASP21_socket(const RequestContext& ctx, std::unique_ptr<Socket>& socket);

// Connects to ML_SERVERIP:ML_EXEPROXY_PORT, sends "SPEXE " + commandLine,
// reads one reply and judges it by `expectedWord`:
//   "user" (any case): the reply begins with "OK:" (any case);
//   otherwise: the reply contains expectedWord (any case), and for
//   "deleted" a reply containing "no alias" is accepted as well.
// An accepted reply is followed by "QUIT" and one farewell line. A refused
// reply is the failure's trail as received (no "QUIT"); socket failures give
// "Connect Error(", "Socket Write Error(" or "Socket Read Error(" with the
// code and ")". Success carries no text: the reply is not handed back.
Status funExeProxyCommand(const RequestContext& ctx, std::string_view commandLine, std::string_view expectedWord);

// The reply judgement above, shared with the local runs of the alias tool.
bool ReplyAccepted(std::string_view reply, std::string_view expectedWord);

// "Connect Error(-111)" and its siblings.
std::string SocketErrorText(std::string_view prefix, int code);

}  // namespace orvane::accounts
