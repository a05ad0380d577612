// The file commands of the exe proxy (FREAD, FWRITE) and the connection
// frame they share with FOLIST, for the mailing-list routines. Every
// exchange opens one connection and ends with "QUIT" and Close; nothing is
// read after "QUIT".
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "accounts/socket.h"
#include "base/status.h"
#include "dispatch/request_context.h"

namespace orvane::accounts {

// Makes the socket and connects to ML_SERVERIP:ML_EXEPROXY_PORT. A failure
// (code -1) has the trail "Connect Error(" code ")" or the creation error.
Status OpenExeProxy(const RequestContext& ctx, std::unique_ptr<Socket>& socket);

// Sends "QUIT" without waiting for an answer and closes; returns the code
// of the write (the callers test it "< 0").
int QuitExeProxy(Socket& socket);

// "FREAD " + path, then lines up to the one ending in "[EOF]": every earlier
// line is content followed by CR LF, and the text before the marker ends it.
// Failures (code -1): "Socket Write Error(" or "Socket Read Error(" with the
// code.
Status ProxyFread(Socket& socket, std::string_view path, std::string& content);

// "FWRITE " + path + " " + content as one Write, "[EOF]" as a second; the
// reply must be "OK". Failures (code -1): "Socket Write Error(" code
// ")(FWRITE)" and "Socket Read Error(" code ")(FWRITE)".
Status ProxyFwrite(Socket& socket, std::string_view path, std::string_view content);

}  // namespace orvane::accounts
