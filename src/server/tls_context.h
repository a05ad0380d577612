// HTTPS: the one asio::ssl context of a server, TLS 1.2 or later, with the
// certificate chain and key loaded at start. The handshakes and records
// are Asio's (ssl::stream over OpenSSL); this only sets the context up and
// says in one line what is wrong with the files.
#pragma once

#include <boost/asio/ssl/context.hpp>
#include <memory>
#include <string>

namespace orvane {

// The context for the PEM certificate chain and private key; null with
// `error` (one line) when a file cannot be read or the key is not the
// certificate's.
std::unique_ptr<boost::asio::ssl::context> LoadTlsContext(const std::string& cert_file, const std::string& key_file,
                                                          std::string& error);

}  // namespace orvane
