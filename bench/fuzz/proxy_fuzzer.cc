// The exe proxy's replies: one text is what a real loopback TCP peer
// answers on every connection (sent at once, then the peer shuts its
// sending side and reads until the client closes). Against it run the SPEXE
// exchange (funExeProxyCommand, judged as "user" and as "deleted"), FREAD,
// FWRITE, the FOLIST listing (funMailListGet), a list's members
// (funMailListUserGet) and the two member changes (funAddMailListUser,
// funDelMailListUser), with the shortest time-out (1 s).
//
// The reply is cut into lines as the socket promises (LF, a CR before it
// dropped, an unterminated last line still a line, then "closed"), and
// every call must give exactly what those lines mean for it: its status,
// its trail word for word ("Socket Read Error(-104)", a refused reply as
// received, ...), its list text or members. As the peer always closes, no
// call may wait for a time-out: each must return in less than the 1 s
// time-out, and none may write an answer code to the response.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "accounts/exe_proxy.h"
#include "accounts/mail_list_members.h"
#include "accounts/mail_lists.h"
#include "accounts/proxy_files.h"
#include "base/clock.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "dispatch/request_context.h"
#include "dispatch/session.h"
#include "temp_folder.h"

namespace {

namespace fs = std::filesystem;
using orvane::Status;

constexpr size_t kMaxReply = 16 * 1024;  // always fits the loopback buffers: the peer never blocks
constexpr auto kTimeout = std::chrono::seconds(1);
const std::string kClosed = "(-104)";  // kSocketClosed, as the trails write it

std::string g_input;

void Expect(bool holds, const std::string& what) {
  if (holds) return;
  std::fprintf(stderr, "proxy_fuzzer: %s\nreply (%zu bytes): ", what.c_str(), g_input.size());
  for (unsigned char c : g_input) std::fprintf(stderr, (c < 0x20 || c >= 0x7f) ? "\\x%02x" : "%c", c);
  std::fprintf(stderr, "\n");
  std::abort();
}

// A one-reply peer on an ephemeral loopback port.
class Peer {
 public:
  Peer() {
    listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in addr{};
    addr.sin_family = AF_INET;
    addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t len = sizeof addr;
    if (listen_fd_ < 0 || ::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), len) != 0 ||
        ::listen(listen_fd_, 64) != 0 || ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&addr), &len) != 0)
      std::abort();
    port_ = ntohs(addr.sin_port);
    std::thread([this] { AcceptLoop(); }).detach();
  }
  int port() const { return port_; }

  void SetReply(std::string reply) {
    std::lock_guard lock(mu_);
    reply_ = std::move(reply);
  }

  // After the client closed every connection: drains and closes them.
  // Returns how many there were.
  size_t EndConnections() {
    std::vector<int> fds;
    {
      std::lock_guard lock(mu_);
      fds.swap(open_);
    }
    for (int fd : fds) {
      char buf[4096];
      for (pollfd p{fd, POLLIN, 0}; ::poll(&p, 1, 2000) > 0 && ::recv(fd, buf, sizeof buf, 0) > 0;) {
      }
      ::close(fd);
    }
    return fds.size();
  }

 private:
  void AcceptLoop() {
    for (;;) {
      int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
      if (fd < 0) continue;
      std::lock_guard lock(mu_);
      for (size_t sent = 0; sent < reply_.size();) {
        ssize_t n = ::send(fd, reply_.data() + sent, reply_.size() - sent, MSG_NOSIGNAL);
        if (n <= 0) break;
        sent += static_cast<size_t>(n);
      }
      ::shutdown(fd, SHUT_WR);
      open_.push_back(fd);
    }
  }

  int listen_fd_ = -1, port_ = 0;
  std::mutex mu_;
  std::string reply_;     // guarded by mu_
  std::vector<int> open_;  // guarded by mu_
};

struct Counter : orvane::ProxyExchangeCounter {
  int ok = 0, failed = 0;
  void NoteProxyExchange(bool good) override { ++(good ? ok : failed); }
};

struct Installation {
  std::string dir;
  Peer peer;
  orvane::ConfigFile* config = nullptr;
  orvane::ApplicationStore app;
  orvane::FixedClock clock{orvane::LocalTime{2024, 4, 1, 10, 20, 30}};
};

Installation& Setup() {
  static Installation* in = [] {
    auto* i = new Installation;
    const std::string dir = orvane::bench::TempFolder("orvane-proxy-fuzz");
    i->dir = dir;
    std::ofstream(dir + "/ORVANE.ini")
        << "LOCAL_DB_DSN=orvane_fuzz\nML_MODE=2\nML_ISLOCAL=False\nML_SERVER=example.jp\nML_SERVERIP=127.0.0.1\n"
           "ML_EXEPROXY_PORT="
        << i->peer.port() << "\nML_EXEPROXY_TIMEOUT=1\nML_FOLDER=D:\\IMail\n";
    i->config = new orvane::ConfigFile(dir + "/ORVANE.ini");
    return i;
  }();
  return *in;
}

// ---- what the reply's lines mean -------------------------------------

std::vector<std::string> Lines(std::string_view reply) {
  std::vector<std::string> lines;
  size_t start = 0;
  while (start < reply.size()) {
    size_t lf = reply.find('\n', start);
    if (lf == std::string_view::npos) {
      lines.emplace_back(reply.substr(start));
      break;
    }
    size_t end = (lf > start && reply[lf - 1] == '\r') ? lf - 1 : lf;
    lines.emplace_back(reply.substr(start, end - start));
    start = lf + 1;
  }
  return lines;
}

char Up(char c) { return (c >= 'a' && c <= 'z') ? static_cast<char>(c - 'a' + 'A') : c; }
std::string Upper(std::string_view s) {
  std::string out;
  for (char c : s) out += Up(c);
  return out;
}
bool HasWord(std::string_view s, std::string_view word) { return Upper(s).find(Upper(word)) != std::string::npos; }

bool Accepted(const std::string& reply, std::string_view word) {
  if (Upper(word) == "USER") return Upper(reply).rfind("OK:", 0) == 0;
  return HasWord(reply, word) || (Upper(word) == "DELETED" && HasWord(reply, "no alias"));
}

std::vector<std::string> SplitCrLf(const std::string& s) {
  std::vector<std::string> out;
  for (size_t from = 0;;) {
    size_t at = s.find("\r\n", from);
    out.push_back(s.substr(from, at == std::string::npos ? std::string::npos : at - from));
    if (at == std::string::npos) return out;
    from = at + 2;
  }
}

std::string Trimmed(const std::string& s) {
  size_t b = s.find_first_not_of(' '), e = s.find_last_not_of(' ');
  return b == std::string::npos ? "" : s.substr(b, e - b + 1);
}

// FREAD: false when no line ends in "[EOF]".
bool FreadContent(const std::vector<std::string>& lines, std::string& content) {
  content.clear();
  for (const std::string& line : lines) {
    if (line.size() >= 5 && line.compare(line.size() - 5, 5, "[EOF]") == 0) {
      content += line.substr(0, line.size() - 5);
      return true;
    }
    content += line + "\r\n";
  }
  return false;
}

// The listing's text: null when the exchange failed (the text is "").
std::string ListText(const std::vector<std::string>& lines) {
  if (lines.empty()) return "";
  std::string out;
  for (char c : lines[0]) out += c == '|' ? std::string("\r\n") : std::string(1, c);
  return out;
}

bool ListFound(const std::vector<std::string>& lines, std::string_view name) {
  for (const std::string& item : SplitCrLf(ListText(lines)))
    if (!Trimmed(item).empty() && HasWord(Trimmed(item), name)) return true;
  return false;
}

// ---- the calls --------------------------------------------------------

struct Call {
  Installation& in;
  const char* name;
  Counter counter;
  orvane::Session session;
  orvane::RequestContext ctx{*in.config, session, in.app, in.clock};

  Call(Installation& i, const char* n) : in(i), name(n) { ctx.proxy_exchanges = &counter; }

  Status Run(const std::function<Status(orvane::RequestContext&)>& call) {
    auto start = std::chrono::steady_clock::now();
    Status s = call(ctx);
    auto took = std::chrono::steady_clock::now() - start;
    Expect(took < kTimeout, std::string(name) + " took " +
                                std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(took).count()) +
                                " ms: it waited for a time-out");
    Expect(ctx.response().empty(), std::string(name) + " wrote an answer: " + ctx.response());
    in.peer.EndConnections();
    return s;
  }

  void Outcome(const Status& s, bool ok, const std::string& trail) {
    Expect(s.ok() == ok && (ok || s.trail() == trail), std::string(name) + " gave " +
                                                           (s.ok() ? "success" : "\"" + s.trail() + "\"") +
                                                           ", the reply means " + (ok ? "success" : "\"" + trail + "\""));
  }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  Setup();
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  if (size > kMaxReply) return 0;
  g_input.assign(reinterpret_cast<const char*>(data), size);
  Installation& in = Setup();
  in.peer.SetReply(g_input);
  const std::vector<std::string> lines = Lines(g_input);
  using namespace orvane::accounts;

  // SPEXE: the first line judged, then QUIT and a farewell line.
  for (const char* word : {"user", "deleted"}) {
    Call c(in, "SPEXE");
    Status s = c.Run([&](orvane::RequestContext& ctx) { return funExeProxyCommand(ctx, "MAILUSER.EXE -x", word); });
    if (lines.empty()) c.Outcome(s, false, "Socket Read Error" + kClosed);
    else if (!Accepted(lines[0], word)) c.Outcome(s, false, lines[0]);
    else if (lines.size() < 2) c.Outcome(s, false, "Socket Read Error" + kClosed);
    else c.Outcome(s, true, "");
    Expect(c.counter.ok + c.counter.failed == 1 && (c.counter.ok == 1) == s.ok(), "SPEXE counted wrongly");
  }

  // FREAD and FWRITE on a connection of their own.
  {
    Call c(in, "FREAD");
    std::string content = "junk", want;
    Status s = c.Run([&](orvane::RequestContext& ctx) {
      std::unique_ptr<Socket> socket;
      if (Status o = OpenExeProxy(ctx, socket); !o.ok()) return o;
      Status r = ProxyFread(*socket, "D:\\IMail\\Lists\\a\\users.lst", content);
      QuitExeProxy(*socket);
      return r;
    });
    bool ok = FreadContent(lines, want);
    c.Outcome(s, ok, "Socket Read Error" + kClosed);
    if (ok) Expect(content == want, "FREAD content \"" + content + "\", the reply means \"" + want + "\"");
  }
  {
    Call c(in, "FWRITE");
    Status s = c.Run([&](orvane::RequestContext& ctx) {
      std::unique_ptr<Socket> socket;
      if (Status o = OpenExeProxy(ctx, socket); !o.ok()) return o;
      Status r = ProxyFwrite(*socket, "D:\\IMail\\Lists\\a\\users.lst", "a@example.jp\r\n");
      QuitExeProxy(*socket);
      return r;
    });
    if (lines.empty()) c.Outcome(s, false, "Socket Read Error" + kClosed + "(FWRITE)");
    else c.Outcome(s, lines[0] == "OK", "Socket Read Error(0)(FWRITE)");
  }

  // FOLIST: the lists; a failed exchange reads as no lists.
  {
    Call c(in, "FOLIST");
    std::string text = "junk";
    Status s = c.Run([&](orvane::RequestContext& ctx) { return funMailListGet(ctx, text); });
    c.Outcome(s, true, "");
    Expect(text == ListText(lines), "FOLIST gave \"" + text + "\", the reply means \"" + ListText(lines) + "\"");
  }

  // A list's members: FOLIST must name it, then FREAD on a second connection.
  const bool listed = ListFound(lines, "alist");
  std::string content;
  const bool readable = listed && FreadContent(lines, content);
  {
    Call c(in, "members");
    std::vector<std::string> members{"junk"};
    Status s = c.Run([&](orvane::RequestContext& ctx) { return funMailListUserGet(ctx, "alist", members); });
    c.Outcome(s, readable, "");
    if (readable) {
      std::vector<std::string> want = content.empty() ? std::vector<std::string>{} : SplitCrLf(content);
      Expect(members == want, "members: " + std::to_string(members.size()) + " read, the reply means " +
                                  std::to_string(want.size()));
    }
  }

  // Member changes: FOLIST of the list's folder (a non-empty first line),
  // the members as above, then two FWRITEs on the first connection.
  for (const char* change : {"add", "delete"}) {
    Call c(in, change);
    Status s = c.Run([&](orvane::RequestContext& ctx) {
      return change[0] == 'a' ? funAddMailListUser(ctx, "alist", "b@example.jp,c@example.jp", "0")
                              : funDelMailListUser(ctx, "alist", "a@example.jp");
    });
    if (lines.empty()) c.Outcome(s, false, "List Exist Error" + kClosed);
    else if (lines[0].empty()) c.Outcome(s, false, "List Exist Error(0)");
    else if (!readable) c.Outcome(s, false, "メーリングリストの登録者一覧の取得に失敗");
    else if (lines.size() < 2) c.Outcome(s, false, "Socket Read Error" + kClosed + "(FWRITE)");
    else if (lines[1] != "OK") c.Outcome(s, false, "Socket Read Error(0)(FWRITE)");
    else if (lines.size() < 3) c.Outcome(s, false, "Socket Read Error" + kClosed + "(FWRITE)");
    else c.Outcome(s, lines[2] == "OK", "Socket Read Error(0)(FWRITE)");
  }
  return 0;
}
