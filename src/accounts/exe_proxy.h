// One exchange with the exe proxy, the small TCP service on the mail-server
// machine that runs one command line per connection and answers with the
// tool's output. Used by the account and alias routines (mail_account.h);
// the file commands of the mailing lists use the same socket (proxy_files.h).
//
// Statuses are the mail routines' signed 16-bit values: 0 success, -1
// failure, -1 from entry until the single point of success.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "accounts/socket.h"
#include "dispatch/request_context.h"

namespace orvane::accounts {

// Releases whatever `socket` holds and makes a new one with the time-out of
// ML_EXEPROXY_TIMEOUT. On failure `errorText` is "エラー番号 " number " "
// description.
short funCreateObject_BASP21_socket(const RequestContext& ctx, std::unique_ptr<Socket>& socket, std::string& errorText);

// Connects to ML_SERVERIP:ML_EXEPROXY_PORT, sends "SPEXE " + commandLine,
// reads one reply and judges it by `expectedWord`:
//   "user" (any case): the reply begins with "OK:" (any case);
//   otherwise: the reply contains expectedWord (any case), and for
//   "deleted" a reply containing "no alias" is accepted as well.
// An accepted reply is followed by "QUIT" and one farewell line. A refused
// reply becomes `errorText` as received (no "QUIT"); socket failures give
// "Connect Error(", "Socket Write Error(" or "Socket Read Error(" with the
// code and ")". On success `errorText` is left as it was.
short funExeProxyCommand(const RequestContext& ctx, std::string_view commandLine, std::string_view expectedWord,
                         std::string& errorText);

// The reply judgement above, shared with the local runs of the alias tool.
bool ReplyAccepted(std::string_view reply, std::string_view expectedWord);

// "Connect Error(-111)" and its siblings.
std::string SocketErrorText(std::string_view prefix, int code);

}  // namespace orvane::accounts
