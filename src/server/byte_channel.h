// The byte transport under the HTTP edge: one accepted connection, read and
// written without blocking. The edge and the workers see only this, so a
// TLS connection can stand in for the plain socket later (it will also
// have to say which direction it waits for during a handshake).
#pragma once

#include <sys/types.h>

#include <memory>

namespace orvane {

class ByteChannel {
 public:
  virtual ~ByteChannel() = default;
  // > 0 bytes moved, 0 the peer closed (Read only), -1 with errno set
  // (EAGAIN: nothing now, wait for the descriptor).
  virtual ssize_t Read(char* data, size_t size) = 0;
  virtual ssize_t Write(const char* data, size_t size) = 0;
  // No more bytes from us; the peer still may send.
  virtual void ShutdownWrite() = 0;
  // The descriptor to wait on.
  virtual int fd() const = 0;
};

// A plain TCP socket, made non-blocking; closed with the channel.
std::unique_ptr<ByteChannel> PlainSocket(int fd);

}  // namespace orvane
