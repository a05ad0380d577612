#include "server/tls_context.h"

#include <openssl/err.h>
#include <openssl/ssl.h>
#include <openssl/x509.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <utility>

namespace orvane {

namespace asio = boost::asio;

std::unique_ptr<asio::ssl::context> LoadTlsContext(const std::string& cert_file, const std::string& key_file,
                                                   std::string& error) {
  ERR_clear_error();
  auto tls = std::make_unique<asio::ssl::context>(asio::ssl::context::tls_server);
  SSL_CTX* ctx = tls->native_handle();
  // TLS 1.0 and 1.1 are refused in the handshake.
  SSL_CTX_set_min_proto_version(ctx, TLS1_2_VERSION);
  // A client may not make the server renegotiate (TLS 1.2): only the first
  // handshake is bounded by a deadline.
  SSL_CTX_set_options(ctx, SSL_OP_NO_RENEGOTIATION | SSL_OP_CIPHER_SERVER_PREFERENCE);
  // An idle kept-alive connection gives its record buffers back.
  SSL_CTX_set_mode(ctx, SSL_MODE_RELEASE_BUFFERS);
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

}  // namespace orvane
