#include "server/tls_channel.h"

#include <fcntl.h>
#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <algorithm>
#include <climits>
#include <cstdint>
#include <cstring>
#include <fstream>
#include <utility>

namespace orvane {
namespace {

// OpenSSL's socket BIO writes with write(2): a peer that has gone would
// raise SIGPIPE and end the process. This one sends with MSG_NOSIGNAL.
int FdOf(BIO* b) { return static_cast<int>(reinterpret_cast<intptr_t>(BIO_get_data(b))); }

int BioWrite(BIO* b, const char* data, int size) {
  BIO_clear_retry_flags(b);
  ssize_t n = ::send(FdOf(b), data, static_cast<size_t>(size), MSG_NOSIGNAL);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) BIO_set_retry_write(b);
  return static_cast<int>(n);
}

int BioRead(BIO* b, char* data, int size) {
  BIO_clear_retry_flags(b);
  ssize_t n = ::recv(FdOf(b), data, static_cast<size_t>(size), 0);
  if (n < 0 && (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR)) BIO_set_retry_read(b);
  return static_cast<int>(n);
}

long BioCtrl(BIO*, int cmd, long, void*) { return cmd == BIO_CTRL_FLUSH ? 1 : 0; }  // nothing is held back

const BIO_METHOD* SocketMethod() {
  static BIO_METHOD* method = [] {
    BIO_METHOD* m = BIO_meth_new(BIO_get_new_index() | BIO_TYPE_SOURCE_SINK, "orvane socket");
    BIO_meth_set_write(m, BioWrite);
    BIO_meth_set_read(m, BioRead);
    BIO_meth_set_ctrl(m, BioCtrl);
    return m;
  }();
  return method;
}

// OpenSSL's reason for a failure, one line.
std::string OpenSslReason() {
  unsigned long e = ERR_peek_error();
  const char* reason = e ? ERR_reason_error_string(e) : nullptr;
  ERR_clear_error();
  return reason ? reason : "unknown error";
}

class TlsChannel : public ByteChannel {
 public:
  TlsChannel(int fd, SSL_CTX* ctx) : fd_(fd), ssl_(SSL_new(ctx)) {
    ::fcntl(fd_, F_SETFL, ::fcntl(fd_, F_GETFL) | O_NONBLOCK);
    BIO* bio = BIO_new(SocketMethod());
    BIO_set_data(bio, reinterpret_cast<void*>(static_cast<intptr_t>(fd_)));
    BIO_set_init(bio, 1);
    SSL_set_bio(ssl_, bio, bio);
    SSL_set_accept_state(ssl_);
  }
  ~TlsChannel() override {
    if (open_ && !failed_ && !shut_) {
      ERR_clear_error();
      SSL_shutdown(ssl_);  // our close_notify, if the socket takes it now
    }
    SSL_free(ssl_);
    ERR_clear_error();
    ::close(fd_);
  }

  Setup Open() override {
    Begin();
    int r = SSL_accept(ssl_);
    if (r == 1) {
      open_ = true;
      return Setup::kDone;
    }
    return Failed(r) == 0 || errno != EAGAIN ? Setup::kFailed : Setup::kAgain;
  }

  ssize_t Read(char* data, size_t size) override {
    Begin();
    int n = SSL_read(ssl_, data, static_cast<int>(std::min<size_t>(size, INT_MAX)));
    return n > 0 ? n : Failed(n);
  }

  ssize_t Write(const char* data, size_t size) override {
    Begin();
    int n = SSL_write(ssl_, data, static_cast<int>(std::min<size_t>(size, INT_MAX)));
    if (n > 0) return n;
    ssize_t r = Failed(n);
    if (r == 0) errno = EPIPE;  // the peer closed: nothing more can be sent
    return -1;
  }

  bool WaitsToWrite(bool) const override { return wants_write_; }
  bool Buffered() const override { return SSL_has_pending(ssl_) == 1; }

  void ShutdownWrite() override {
    if (open_ && !failed_ && !shut_) {
      ERR_clear_error();
      SSL_shutdown(ssl_);
    }
    shut_ = true;
    ::shutdown(fd_, SHUT_WR);
  }

  int fd() const override { return fd_; }

 private:
  // Before each call: OpenSSL's error queue is the thread's, and a wait
  // for writing applies only to the call that asked for it.
  void Begin() {
    ERR_clear_error();
    wants_write_ = false;
  }

  // The outcome of a call that did not move bytes: -1 with EAGAIN (and the
  // direction to wait for), 0 for the peer's close_notify, else -1 with the
  // connection unusable.
  ssize_t Failed(int result) {
    switch (SSL_get_error(ssl_, result)) {
      case SSL_ERROR_WANT_READ:
        wants_write_ = false;
        errno = EAGAIN;
        return -1;
      case SSL_ERROR_WANT_WRITE:
        wants_write_ = true;
        errno = EAGAIN;
        return -1;
      case SSL_ERROR_ZERO_RETURN:
        return 0;
      default:
        failed_ = true;  // no close_notify after a fatal error
        ERR_clear_error();
        errno = ECONNRESET;
        return -1;
    }
  }

  int fd_;
  SSL* ssl_;
  bool open_ = false;    // handshake done
  bool failed_ = false;  // a fatal error: the session may not be shut down cleanly
  bool shut_ = false;    // our close_notify sent
  bool wants_write_ = false;
};

}  // namespace

std::shared_ptr<TlsContext> TlsContext::Load(const std::string& cert_file, const std::string& key_file,
                                             std::string& error) {
  ERR_clear_error();
  SSL_CTX* ctx = SSL_CTX_new(TLS_server_method());
  if (!ctx) {
    error = "cannot set up TLS: " + OpenSslReason();
    return nullptr;
  }
  std::shared_ptr<TlsContext> tls(new TlsContext(ctx));
  SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
  // A client may not make the server renegotiate (TLS 1.2): a handshake
  // costs the edge thread, and only the first one is bounded by a deadline.
  SSL_CTX_set_options(ctx, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
  // Partial writes: an answer goes out as the socket takes it.
  SSL_CTX_set_mode(ctx, SSL_MODE_ENABLE_PARTIAL_WRITE | SSL_MODE_ACCEPT_MOVING_WRITE_BUFFER);
  // OpenSSL's own reasons name its decoders, not the file's fault: a file
  // that cannot be read says so first, the rest is about the contents.
  for (const auto& [file, what] : {std::pair{&cert_file, "certificate"}, std::pair{&key_file, "key"}}) {
    if (!std::ifstream(*file)) {
      error = std::string("cannot read the TLS ") + what + " " + *file + ": " + std::strerror(errno);
      return nullptr;
    }
  }
  if (SSL_CTX_use_certificate_chain_file(ctx, cert_file.c_str()) != 1) {
    ERR_clear_error();
    error = "the TLS certificate " + cert_file + " is not a PEM certificate (chain)";
    return nullptr;
  }
  if (SSL_CTX_use_PrivateKey_file(ctx, key_file.c_str(), SSL_FILETYPE_PEM) != 1) {
    unsigned long e = ERR_peek_last_error();
    ERR_clear_error();
    if (ERR_GET_LIB(e) == ERR_LIB_X509 && ERR_GET_REASON(e) == X509_R_KEY_VALUES_MISMATCH) {
      error = "the TLS key " + key_file + " does not match the certificate " + cert_file;
    } else {
      error = "the TLS key " + key_file + " is not an unencrypted PEM private key";
    }
    return nullptr;
  }
  if (SSL_CTX_check_private_key(ctx) != 1) {
    error = "the TLS key " + key_file + " does not match the certificate " + cert_file;
    ERR_clear_error();
    return nullptr;
  }
  return tls;
}

TlsContext::~TlsContext() { SSL_CTX_free(ctx_); }  // reference counted: live connections keep it

std::unique_ptr<ByteChannel> TlsContext::Accept(int fd) const { return std::make_unique<TlsChannel>(fd, ctx_); }

}  // namespace orvane
