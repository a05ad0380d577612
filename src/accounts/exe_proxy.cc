#include "accounts/exe_proxy.h"

#include <new>

#include "accounts/mail_config.h"
#include "base/text.h"

namespace orvane::accounts {

std::string SocketErrorText(std::string_view prefix, int code) {
  return std::string(prefix) + std::to_string(code) + ")";
}

Status funCreateObject_BASP21_socket(const RequestContext& ctx, std::unique_ptr<Socket>& socket) {
  socket.reset();
  socket = std::unique_ptr<Socket>(new (std::nothrow) Socket(ExeProxyTimeout(ctx.config())));
  if (!socket) return Status::Failure("エラー番号 " + std::to_string(ENOMEM) + " Out of memory");
  return Status::Ok();
}

bool ReplyAccepted(std::string_view reply, std::string_view expectedWord) {
  if (text::EqualsIgnoreCase(expectedWord, "user")) return text::StartsWithIgnoreCase(reply, "OK:");
  if (text::ContainsIgnoreCase(reply, expectedWord)) return true;
  return text::EqualsIgnoreCase(expectedWord, "deleted") && text::ContainsIgnoreCase(reply, "no alias");
}

namespace {

Status Exchange(const RequestContext& ctx, std::string_view commandLine, std::string_view expectedWord) {
  std::unique_ptr<Socket> socket;
  if (Status s = funCreateObject_BASP21_socket(ctx, socket); !s.ok()) return s;

  int rc = socket->Connect(ctx.config().Get("ML_SERVERIP"), ctx.config().Get("ML_EXEPROXY_PORT"));
  if (rc != 0) return Status::Failure(SocketErrorText("Connect Error(", rc));
  // Write codes are tested "< 0" here, as the callers always did.
  if ((rc = socket->Write("SPEXE " + std::string(commandLine))) < 0)
    return Status::Failure(SocketErrorText("Socket Write Error(", rc));
  std::string reply;
  if ((rc = socket->Read(reply)) != 0) return Status::Failure(SocketErrorText("Socket Read Error(", rc));
  if (!ReplyAccepted(reply, expectedWord)) return Status::Failure(reply);  // a refused command gets no "QUIT"
  if ((rc = socket->Write("QUIT")) < 0) return Status::Failure(SocketErrorText("Socket Write Error(", rc));
  if ((rc = socket->readLine(reply)) != 0) return Status::Failure(SocketErrorText("Socket Read Error(", rc));
  socket->Close();
  return Status::Ok();
}

}  // namespace

Status funExeProxyCommand(const RequestContext& ctx, std::string_view commandLine, std::string_view expectedWord) {
  Status s = Exchange(ctx, commandLine, expectedWord);
  if (ctx.proxy_exchanges) ctx.proxy_exchanges->NoteProxyExchange(s.ok());
  return s;
}

}  // namespace orvane::accounts
