#include "accounts/exe_proxy.h"

#include <new>

#include "accounts/mail_config.h"
#include "base/text.h"

namespace orvane::accounts {

std::string SocketErrorText(std::string_view prefix, int code) {
  return std::string(prefix) + std::to_string(code) + ")";
}

short funCreateObject_BASP21_socket(const RequestContext& ctx, std::unique_ptr<Socket>& socket,
                                    std::string& errorText) {
  socket.reset();
  socket = std::unique_ptr<Socket>(new (std::nothrow) Socket(ExeProxyTimeout(ctx.config())));
  if (!socket) {
    errorText = "エラー番号 " + std::to_string(ENOMEM) + " Out of memory";
    return -1;
  }
  return 0;
}

bool ReplyAccepted(std::string_view reply, std::string_view expectedWord) {
  if (text::EqualsIgnoreCase(expectedWord, "user")) return text::StartsWithIgnoreCase(reply, "OK:");
  if (text::ContainsIgnoreCase(reply, expectedWord)) return true;
  return text::EqualsIgnoreCase(expectedWord, "deleted") && text::ContainsIgnoreCase(reply, "no alias");
}

short funExeProxyCommand(const RequestContext& ctx, std::string_view commandLine, std::string_view expectedWord,
                         std::string& errorText) {
  short status = -1;
  std::unique_ptr<Socket> socket;
  if (funCreateObject_BASP21_socket(ctx, socket, errorText) != 0) return status;

  int rc = socket->Connect(ctx.config().Get("ML_SERVERIP"), ctx.config().Get("ML_EXEPROXY_PORT"));
  if (rc != 0) {
    errorText = SocketErrorText("Connect Error(", rc);
    return status;
  }
  // Write codes are tested "< 0" here, as the callers always did.
  if ((rc = socket->Write("SPEXE " + std::string(commandLine))) < 0) {
    errorText = SocketErrorText("Socket Write Error(", rc);
    return status;
  }
  std::string reply;
  if ((rc = socket->Read(reply)) != 0) {
    errorText = SocketErrorText("Socket Read Error(", rc);
    return status;
  }
  if (!ReplyAccepted(reply, expectedWord)) {
    errorText = reply;  // a refused command gets no "QUIT"
    return status;
  }
  if ((rc = socket->Write("QUIT")) < 0) {
    errorText = SocketErrorText("Socket Write Error(", rc);
    return status;
  }
  if ((rc = socket->readLine(reply)) != 0) {
    errorText = SocketErrorText("Socket Read Error(", rc);
    return status;
  }
  socket->Close();
  status = 0;
  return status;
}

}  // namespace orvane::accounts
