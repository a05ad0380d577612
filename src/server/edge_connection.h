// One client connection as the edge and the workers hold it (internal to
// edge.cc and edge_stream.cc).
#pragma once

#include <httplib.h>

#include <chrono>
#include <memory>
#include <string>

#include "server/byte_channel.h"
#include "server/request_head.h"

namespace orvane {

using EdgeClock = std::chrono::steady_clock;

struct EdgeConnection {
  enum class Phase {
    kOpening,  // the channel's handshake (TLS), within the first head's deadline
    kWaiting,  // for a request's first byte
    kHead,     // reading the head
    kBody,     // reading a body of known length
    kClosing,  // a refusal being sent, then the rest read and dropped
  };
  std::unique_ptr<ByteChannel> channel;
  std::string client_ip, local_ip;
  int client_port = 0, local_port = 0;
  std::string in;   // received, not yet handed on: the next request's bytes
  std::string out;  // kClosing: the refusal left to send
  Phase phase = Phase::kWaiting;
  EdgeClock::time_point deadline;
  EdgeClock::time_point started;  // the request's first byte
  bool opened = false;            // a handshake began the first request's time
  HeadScan head;                  // kBody
  size_t served = 0;              // requests answered on this connection
  size_t dropped = 0;             // kClosing: bytes read and dropped
};

// The peer's (`peer`) or our own address of a connected socket.
void Address(int fd, bool peer, std::string& ip, int& port);

// What a worker gives httplib: the buffered request to read, the
// connection to write the answer to, each write bounded by `deadline`.
class RequestStream : public httplib::Stream {
 public:
  RequestStream(EdgeConnection& conn, std::string_view request, EdgeClock::time_point deadline)
      : conn_(conn), request_(request), deadline_(deadline) {}

  bool is_readable() const override { return pos_ < request_.size(); }
  bool is_writable() const override { return !broken_; }
  ssize_t read(char* ptr, size_t size) override;
  ssize_t write(const char* ptr, size_t size) override;
  void get_remote_ip_and_port(std::string& ip, int& port) const override;
  void get_local_ip_and_port(std::string& ip, int& port) const override;
  socket_t socket() const override { return conn_.channel->fd(); }

  // A write failed or ran out of time: the connection is not reusable.
  bool broken() const { return broken_; }

 private:
  EdgeConnection& conn_;
  std::string_view request_;
  size_t pos_ = 0;
  EdgeClock::time_point deadline_;
  bool broken_ = false;
};

}  // namespace orvane
