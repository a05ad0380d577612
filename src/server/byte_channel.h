// The byte transport under the HTTP edge: one accepted connection, read and
// written without blocking. The edge and the workers see only this, so a
// TLS connection (server/tls_channel.h) stands in for the plain socket.
#pragma once

#include <sys/types.h>

#include <memory>

namespace orvane {

class ByteChannel {
 public:
  enum class Setup { kDone, kAgain, kFailed };

  virtual ~ByteChannel() = default;
  // Before the first Read: the channel's own opening (a TLS handshake).
  // kAgain: wait for the descriptor (WaitsToWrite says which way) and call again.
  virtual Setup Open() { return Setup::kDone; }
  // > 0 bytes moved, 0 the peer closed (Read only), -1 with errno set
  // (EAGAIN: nothing now, wait for the descriptor).
  virtual ssize_t Read(char* data, size_t size) = 0;
  virtual ssize_t Write(const char* data, size_t size) = 0;
  // After an EAGAIN from Open, Read or Write (`writing`: from Write): whether
  // to wait for the descriptor to take bytes rather than to bring some. A
  // TLS channel may have to send while reading, or the other way round.
  virtual bool WaitsToWrite(bool writing) const { return writing; }
  // Received bytes held inside the channel that the descriptor no longer
  // announces (decrypted, not yet read).
  virtual bool Buffered() const { return false; }
  // No more bytes from us; the peer still may send.
  virtual void ShutdownWrite() = 0;
  // The descriptor to wait on.
  virtual int fd() const = 0;
};

// A plain TCP socket, made non-blocking; closed with the channel.
std::unique_ptr<ByteChannel> PlainSocket(int fd);

}  // namespace orvane
