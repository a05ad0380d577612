#include "accounts/proxy_files.h"

#include "accounts/exe_proxy.h"
#include "base/text.h"

namespace orvane::accounts {
namespace {

constexpr std::string_view kEofMarker = "[EOF]";

bool EndsWith(std::string_view s, std::string_view tail) {
  return s.size() >= tail.size() && s.substr(s.size() - tail.size()) == tail;
}

}  // namespace

Status OpenExeProxy(const RequestContext& ctx, std::unique_ptr<Socket>& socket) {
  if (Status s = funCreateObject_BASP21_socket(ctx, socket); !s.ok()) return s;
  int rc = socket->Connect(ctx.config().Get("ML_SERVERIP"), ctx.config().Get("ML_EXEPROXY_PORT"));
  if (ctx.proxy_exchanges) ctx.proxy_exchanges->NoteProxyExchange(rc == 0);
  if (rc != 0) {
    socket.reset();
    return Status::Failure(SocketErrorText("Connect Error(", rc));
  }
  return Status::Ok();
}

int QuitExeProxy(Socket& socket) {
  int rc = socket.Write("QUIT");
  socket.Close();
  return rc;
}

Status ProxyFread(Socket& socket, std::string_view path, std::string& content) {
  content.clear();
  int rc = socket.Write("FREAD " + std::string(path));
  if (rc < 0) return Status::Failure(SocketErrorText("Socket Write Error(", rc));
  for (std::string line;;) {
    if ((rc = socket.readLine(line)) != 0) return Status::Failure(SocketErrorText("Socket Read Error(", rc));
    if (line.size() >= kEofMarker.size() && EndsWith(line, kEofMarker)) {
      content.append(line, 0, line.size() - kEofMarker.size());
      return Status::Ok();
    }
    content.append(line).append(text::kCrLf);
  }
}

Status ProxyFwrite(Socket& socket, std::string_view path, std::string_view content) {
  // The proxy takes as content everything after the path's blank up to the
  // CR LF in front of the "[EOF]" line, so the content travels unchanged.
  int rc = socket.Write("FWRITE " + std::string(path) + " " + std::string(content));
  if (rc == 0) rc = socket.Write(kEofMarker);
  if (rc != 0) return Status::Failure(SocketErrorText("Socket Write Error(", rc) + "(FWRITE)");
  std::string reply;
  rc = socket.readLine(reply);
  if (rc != 0 || reply != "OK") return Status::Failure(SocketErrorText("Socket Read Error(", rc) + "(FWRITE)");
  return Status::Ok();
}

}  // namespace orvane::accounts
