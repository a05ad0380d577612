// The file commands of the exe proxy (FREAD, FWRITE) and the connection
// frame they share with FOLIST, for the mailing-list routines. Every
// exchange opens one connection and ends with "QUIT" and Close; nothing is
// read after "QUIT".
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "accounts/socket.h"
#include "dispatch/request_context.h"

namespace orvane::accounts {

// Makes the socket and connects to ML_SERVERIP:ML_EXEPROXY_PORT. On failure
// `errorText` is "Connect Error(" code ")" (or the creation error): false.
bool OpenExeProxy(const RequestContext& ctx, std::unique_ptr<Socket>& socket, std::string& errorText);

// Sends "QUIT" without waiting for an answer and closes; returns the code
// of the write (the callers test it "< 0").
int QuitExeProxy(Socket& socket);

// "FREAD " + path, then lines up to the one ending in "[EOF]": every earlier
// line is content followed by CR LF, and the text before the marker ends it.
// Failures: "Socket Write Error(" or "Socket Read Error(" with the code.
short ProxyFread(Socket& socket, std::string_view path, std::string& content, std::string& errorText);

// "FWRITE " + path + " " + content as one Write, "[EOF]" as a second; the
// reply must be "OK". Failures: "Socket Write Error(" code ")(FWRITE)" and
// "Socket Read Error(" code ")(FWRITE)".
short ProxyFwrite(Socket& socket, std::string_view path, std::string_view content, std::string& errorText);

}  // namespace orvane::accounts
