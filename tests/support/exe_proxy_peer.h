// ExeProxyPeer: a real exe proxy for tests, a TCP server on an ephemeral
// loopback port. It records every byte each connection sends, answers
// "SPEXE " lines with scripted replies, "QUIT" with "BYE", and serves
// "FOLIST ", "FREAD " and "FWRITE " from a real folder: a remote path that
// begins with `prefix` (for example "D:\IMail\") names the same place under
// `root`, "\" read as "/". FOLIST "<dir>\*" answers the sub-folders, each
// followed by "|"; FOLIST of one path "<name>|" when it exists, "" if not.
// FREAD answers the file's bytes (none if missing), then "[EOF]" CR LF.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

namespace orvane::testing {

class ExeProxyPeer {
 public:
  enum class Behaviour {
    kServe,           // answer as described above
    kCloseOnConnect,  // accept, then close at once
    kSilent,          // accept and read, never answer
  };

  ExeProxyPeer(std::string root, std::string prefix, Behaviour behaviour = Behaviour::kServe);
  ~ExeProxyPeer();
  ExeProxyPeer(const ExeProxyPeer&) = delete;
  ExeProxyPeer& operator=(const ExeProxyPeer&) = delete;

  std::string Port() const { return std::to_string(port_); }
  // ORVANE.ini's lines that send the mail channel here, a reply awaited
  // `timeout` seconds.
  std::string Ini(int timeout = 2) const {
    return "ML_ISLOCAL=False\nML_EXEPROXY_TIMEOUT=" + std::to_string(timeout) + "\nML_EXEPROXY_PORT=" + Port() + "\n";
  }

  // Replies to the next SPEXE lines, in order; "OK:" once they run out.
  void QueueSpexeReplies(std::vector<std::string> replies);

  // The bytes received on each connection since the last call, in order of
  // acceptance. Waits (up to 10 s) until the client has closed every
  // connection, so the last line sent before a close is there.
  std::vector<std::string> Transcripts();

 private:
  void AcceptLoop();
  void Serve(int fd, size_t index);
  std::string Answer(const std::string& line);
  std::string Fwrite(const std::string& body);
  std::string Local(const std::string& remote) const;

  const std::string root_, prefix_;
  const Behaviour behaviour_;
  int listen_fd_ = -1;
  int port_ = -1;
  std::thread accept_thread_;

  std::mutex mu_;
  std::condition_variable cv_;
  std::deque<std::string> spexe_replies_;  // guarded by mu_
  std::vector<std::string> transcripts_;   // guarded by mu_
  std::vector<int> open_fds_;              // guarded by mu_
  std::vector<std::thread> threads_;       // guarded by mu_
  size_t open_connections_ = 0;            // guarded by mu_
  bool stopping_ = false;                  // guarded by mu_
};

}  // namespace orvane::testing
