// HTTPS under the edge: one OpenSSL context per server (certificate chain
// and key loaded at start) and a ByteChannel per connection that runs the
// handshake without blocking (ByteChannel::Open) in the edge thread, then
// reads and writes records for the edge and the workers like a plain socket.
#pragma once

#include <memory>
#include <string>

#include "server/byte_channel.h"

struct ssl_ctx_st;  // OpenSSL's SSL_CTX

namespace orvane {

class TlsContext {
 public:
  // TLS 1.2 or later with the PEM certificate chain and private key; null
  // with `error` (one line) when a file cannot be read or the key is not
  // the certificate's.
  static std::shared_ptr<TlsContext> Load(const std::string& cert_file, const std::string& key_file,
                                          std::string& error);
  ~TlsContext();
  TlsContext(const TlsContext&) = delete;
  TlsContext& operator=(const TlsContext&) = delete;

  // The channel of an accepted socket, made non-blocking; its Open runs the
  // handshake. Closes the socket with the channel.
  std::unique_ptr<ByteChannel> Accept(int fd) const;

 private:
  explicit TlsContext(ssl_ctx_st* ctx) : ctx_(ctx) {}
  ssl_ctx_st* ctx_;
};

}  // namespace orvane
