#include "support/exe_proxy_peer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <optional>
#include <utility>

#include "support/mail_env.h"  // ReadFile

namespace orvane::testing {
namespace fs = std::filesystem;

namespace {

// The replies are small: one send on loopback takes them whole.
void Send(int fd, const std::string& bytes) { ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL); }

bool StartsWith(const std::string& s, const std::string& p) { return s.compare(0, p.size(), p) == 0; }

}  // namespace

ExeProxyPeer::ExeProxyPeer(std::string root, std::string prefix, Behaviour behaviour)
    : root_(std::move(root)), prefix_(std::move(prefix)), behaviour_(behaviour) {
  listen_fd_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in addr{};
  addr.sin_family = AF_INET;
  addr.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  ::bind(listen_fd_, reinterpret_cast<sockaddr*>(&addr), sizeof addr);
  ::listen(listen_fd_, 16);
  socklen_t len = sizeof addr;
  ::getsockname(listen_fd_, reinterpret_cast<sockaddr*>(&addr), &len);
  port_ = ntohs(addr.sin_port);
  accept_thread_ = std::thread([this] { AcceptLoop(); });
}

ExeProxyPeer::~ExeProxyPeer() {
  {
    std::lock_guard<std::mutex> lock(mu_);
    stopping_ = true;
    for (int fd : open_fds_) ::shutdown(fd, SHUT_RDWR);
  }
  ::shutdown(listen_fd_, SHUT_RDWR);
  accept_thread_.join();
  ::close(listen_fd_);
  for (std::thread& t : threads_) t.join();  // no new threads once accepting stopped
}

void ExeProxyPeer::QueueSpexeReplies(std::vector<std::string> replies) {
  std::lock_guard<std::mutex> lock(mu_);
  for (std::string& r : replies) spexe_replies_.push_back(std::move(r));
}

std::vector<std::string> ExeProxyPeer::Transcripts() {
  std::unique_lock<std::mutex> lock(mu_);
  bool closed = cv_.wait_for(lock, std::chrono::seconds(10), [this] { return open_connections_ == 0; });
  return closed ? std::exchange(transcripts_, {}) : transcripts_;  // an open connection still appends
}

void ExeProxyPeer::AcceptLoop() {
  for (;;) {
    int fd = ::accept4(listen_fd_, nullptr, nullptr, SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      return;
    }
    std::lock_guard<std::mutex> lock(mu_);
    if (stopping_) {
      ::close(fd);
      return;
    }
    transcripts_.emplace_back();
    open_fds_.push_back(fd);
    ++open_connections_;
    threads_.emplace_back([this, fd, index = transcripts_.size() - 1] { Serve(fd, index); });
  }
}

void ExeProxyPeer::Serve(int fd, size_t index) {
  std::string pending;
  std::optional<std::string> fwrite_body;  // collecting an FWRITE up to its "[EOF]" line
  char chunk[4096];
  while (behaviour_ != Behaviour::kCloseOnConnect) {
    ssize_t n = ::recv(fd, chunk, sizeof chunk, 0);
    if (n <= 0) break;
    {
      std::lock_guard<std::mutex> lock(mu_);
      transcripts_[index].append(chunk, static_cast<size_t>(n));
    }
    pending.append(chunk, static_cast<size_t>(n));
    if (behaviour_ == Behaviour::kSilent) continue;
    for (size_t end; (end = pending.find("\r\n")) != std::string::npos;) {
      std::string line = pending.substr(0, end);
      pending.erase(0, end + 2);
      if (fwrite_body) {
        if (line == "[EOF]") {
          Send(fd, Fwrite(*fwrite_body));
          fwrite_body.reset();
        } else {
          *fwrite_body += line + "\r\n";
        }
      } else if (StartsWith(line, "FWRITE ")) {
        fwrite_body = line.substr(7) + "\r\n";
      } else {
        Send(fd, Answer(line));
      }
    }
  }
  std::lock_guard<std::mutex> lock(mu_);
  open_fds_.erase(std::find(open_fds_.begin(), open_fds_.end(), fd));
  ::close(fd);
  --open_connections_;
  cv_.notify_all();
}

std::string ExeProxyPeer::Local(const std::string& remote) const {
  if (!StartsWith(remote, prefix_)) return {};
  std::string rest = remote.substr(prefix_.size());
  std::replace(rest.begin(), rest.end(), '\\', '/');
  return root_ + "/" + rest;
}

std::string ExeProxyPeer::Answer(const std::string& line) {
  if (StartsWith(line, "SPEXE ")) {
    std::lock_guard<std::mutex> lock(mu_);
    std::string reply = "OK:";
    if (!spexe_replies_.empty()) {
      reply = spexe_replies_.front();
      spexe_replies_.pop_front();
    }
    return reply + "\r\n";
  }
  if (StartsWith(line, "FOLIST ")) {
    std::string remote = line.substr(7), reply;
    std::error_code ec;
    if (remote.size() >= 2 && remote.compare(remote.size() - 2, 2, "\\*") == 0) {
      std::vector<std::string> names;
      std::string dir = Local(remote.substr(0, remote.size() - 2));
      for (fs::directory_iterator it(dir, ec), end; !dir.empty() && !ec && it != end; it.increment(ec))
        if (it->is_directory()) names.push_back(it->path().filename().string());
      std::sort(names.begin(), names.end());
      for (const std::string& n : names) reply += n + "|";
    } else if (std::string local = Local(remote); !local.empty() && fs::exists(local, ec)) {
      reply = fs::path(local).filename().string() + "|";
    }
    return reply + "\r\n";
  }
  if (StartsWith(line, "FREAD ")) {
    return ReadFile(Local(line.substr(6))) + "[EOF]\r\n";
  }
  if (line == "QUIT") return "BYE\r\n";
  return "ERR unknown command\r\n";
}

std::string ExeProxyPeer::Fwrite(const std::string& body) {
  // body: path, blank, content, and the CR LF that preceded "[EOF]".
  size_t blank = body.find(' ');
  std::ofstream out(blank == std::string::npos ? "" : Local(body.substr(0, blank)), std::ios::binary);
  if (!out) return "ERR cannot write\r\n";
  out << body.substr(blank + 1, body.size() - blank - 3);
  return "OK\r\n";
}

}  // namespace orvane::testing
