// HTTPS through the edge with a certificate made here by the openssl tool:
// requests and the session cookie over TLS, what a client that does not
// speak TLS gets, and the start refused when the key is not the
// certificate's.
#include <gtest/gtest.h>
#include <openssl/ssl.h>

#include <chrono>
#include <cstdlib>
#include <thread>

#include "support/binary.h"
#include "support/db_fixture.h"
#include "support/http_fixture.h"
#include "support/raw_client.h"
#include "support/temp_dir.h"

namespace orvane {
namespace {

using namespace std::chrono_literals;
using testing::LiveServer;
using testing::RawClient;
using testing::TempDir;

// A self-signed certificate for 127.0.0.1 and its key, and a key of
// another pair, in a folder of their own.
struct Certificate {
  TempDir dir;
  std::string cert = dir.File("cert.pem"), key = dir.File("key.pem"), other_key = dir.File("other.pem");

  Certificate() {
    const std::string ec =
        " -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 2 -subj /CN=localhost"
        " -addext subjectAltName=IP:127.0.0.1";
    Run("openssl req -x509" + ec + " -keyout " + key + " -out " + cert);
    Run("openssl req -x509" + ec + " -keyout " + other_key + " -out " + dir.File("other_cert.pem"));
  }
  static void Run(const std::string& command) {
    ASSERT_EQ(std::system((command + " >/dev/null 2>&1").c_str()), 0) << command;
  }

  HttpOptions Options(std::chrono::milliseconds head_timeout = 10s) const {
    HttpOptions o{"127.0.0.1", 0, 4};
    o.tls_cert = cert;
    o.tls_key = key;
    o.limits.header_timeout = head_timeout;
    return o;
  }
  // An HTTPS client (httplib's SSLClient inside) that trusts this
  // certificate alone and checks the server's name (127.0.0.1) against it.
  httplib::Client Client(int port) const {
    httplib::Client c("https://127.0.0.1:" + std::to_string(port));
    c.set_ca_cert_path(cert);
    c.enable_server_certificate_verification(true);
    c.set_read_timeout(30);
    return c;
  }
};

using Https = testing::DbTest;

TEST_P(Https, RequestsAndTheSecureSessionCookie) {
  InsertDemo();
  Certificate tls;
  LiveServer server(ConfigPath(), clock(), 20min, tls.Options());
  ASSERT_GT(server.port(), 0);
  auto client = tls.Client(server.port());
  auto res = client.Get("/healthz");
  ASSERT_TRUE(res) << httplib::to_string(res.error());
  EXPECT_EQ(std::to_string(res->status) + " " + res->body, "200 OK");

  res = client.Post("/login", "User_cd=admin&User_PS=admin", testing::kForm);
  ASSERT_TRUE(res);
  EXPECT_EQ(res->body, "OK");
  const std::string cookie = res->get_header_value("Set-Cookie"), id = cookie.substr(0, cookie.find(';'));
  EXPECT_EQ(cookie, id + "; Path=/; HttpOnly; SameSite=Strict; Secure");
  // The session works over the same TLS client, and logging out expires a
  // cookie that is Secure too.
  res = client.Get("/orvane?ReqNo=105&Group_cd=0000", {{"Cookie", id}});
  ASSERT_TRUE(res);
  EXPECT_TRUE(res->body.starts_with("0000,")) << res->body;
  res = client.Post("/logout", {{"Cookie", id}}, "", testing::kForm);
  ASSERT_TRUE(res);
  EXPECT_EQ(res->get_header_value("Set-Cookie"), "ORVANE_SID=; Path=/; HttpOnly; SameSite=Strict; Secure; Max-Age=0");
}

ORVANE_DB_TEST_SUITE(Https);

constexpr char kConfig[] = "LOCAL_DB_DSN=tls_none\n";

// A handshake of one protocol version only, from a client that would
// speak even the old ones (security level 0): the server alone decides.
// The negotiated version, or "refused".
std::string HandshakeWith(int port, int version) {
  RawClient raw(port, 5s);
  if (!raw.connected()) return "not connected";
  SSL_CTX* ctx = SSL_CTX_new(TLS_client_method());
  SSL_CTX_set_security_level(ctx, 0);
  SSL_CTX_set_cipher_list(ctx, "DEFAULT:@SECLEVEL=0");
  SSL_CTX_set_min_proto_version(ctx, version);
  SSL_CTX_set_max_proto_version(ctx, version);
  SSL* ssl = SSL_new(ctx);
  SSL_set_fd(ssl, raw.fd());
  std::string outcome = SSL_connect(ssl) == 1 ? SSL_get_version(ssl) : "refused";
  SSL_free(ssl);
  SSL_CTX_free(ctx);
  return outcome;
}

// Only TLS 1.2 and later are spoken. What does not speak TLS is closed
// without an HTTP answer and holds nothing: plain HTTP at once, a client
// that never finishes its handshake at the head's deadline.
TEST(Tls, OnlyTls12AndLaterAreSpokenAndClientsThatDoNotSpeakItHoldNothing) {
  Certificate tls;
  TempDir dir;
  LiveServer server(dir.Write("ORVANE.ini", kConfig), SystemClock::Instance(), 20min, tls.Options(1s));
  ASSERT_GT(server.port(), 0);
  const std::pair<int, const char*> versions[] = {
      {TLS1_VERSION, "refused"}, {TLS1_1_VERSION, "refused"}, {TLS1_2_VERSION, "TLSv1.2"}, {TLS1_3_VERSION, "TLSv1.3"}};
  for (auto [version, outcome] : versions) EXPECT_EQ(HandshakeWith(server.port(), version), outcome) << version;
  const std::pair<const char*, std::string> cases[] = {
      {"plain HTTP", "GET /healthz HTTP/1.1\r\nHost: x\r\n\r\n"},
      {"half a ClientHello", std::string("\x16\x03\x01\x02\x00\x01\x00\x01\xfc\x03\x03", 11)},
      {"nothing", ""},
  };
  for (const auto& [name, sent] : cases) {
    RawClient raw(server.port(), 10s);
    ASSERT_TRUE(raw.connected());
    auto start = std::chrono::steady_clock::now();
    if (!sent.empty()) raw.Send(sent);
    // Plain HTTP may get a TLS alert, never an HTTP answer.
    std::string reply = raw.ReadAll();
    EXPECT_EQ(reply.find("HTTP/"), std::string::npos) << name << ": " << reply;
    EXPECT_LT(std::chrono::steady_clock::now() - start, 5s) << name << ": closed by the head's deadline";
    auto res = tls.Client(server.port()).Get("/healthz");
    ASSERT_TRUE(res) << name;
    EXPECT_EQ(res->body, "OK") << name;
  }
  // Nothing the edge answered itself: no HTTP words were exchanged.
  EXPECT_EQ(server.Log().find(" 400 "), std::string::npos) << server.Log();
  EXPECT_EQ(server.Log().find(" 408 "), std::string::npos) << server.Log();
}

TEST(Tls, ServeRefusesCertificatesAndKeysItCannotUse) {
  Certificate tls;
  TempDir dir;
  std::string config = dir.Write("ORVANE.ini", "LOCAL_DB_DSN=tls_serve_probe\n");
  dir.Write("odbc.ini", "[tls_serve_probe]\nDriver=SQLite3\nDatabase=" + dir.File("o.db") + "\n");
  // A port already taken: should a refusal go missing, serve stops at its
  // listen instead of serving on.
  LiveServer taken(config);
  const std::string serve = "serve --config " + config + " --listen 127.0.0.1:" + std::to_string(taken.port()) + " ";
  const std::string missing = dir.File("missing.pem");
  struct Case {
    std::string args, out;
  } cases[] = {
      {"--tls-cert " + tls.cert + " --tls-key " + tls.other_key,
       "orvane serve: the TLS key " + tls.other_key + " does not match the certificate " + tls.cert + "\n"},
      {"--tls-cert " + missing + " --tls-key " + tls.key,
       "orvane serve: cannot read the TLS certificate " + missing + ": No such file or directory\n"},
      {"--tls-cert " + tls.key + " --tls-key " + tls.key,
       "orvane serve: the TLS certificate " + tls.key + " is not a PEM certificate (chain)\n"},
      {"--tls-cert " + tls.cert + " --tls-key " + tls.cert,
       "orvane serve: the TLS key " + tls.cert + " is not an unencrypted PEM private key\n"},
      {"--tls-cert " + tls.cert, "orvane serve: --tls-cert and --tls-key go together\n"},
  };
  for (const Case& c : cases) EXPECT_EQ(testing::RunBinary(serve + c.args), std::pair(2, c.out)) << c.args;
}

}  // namespace
}  // namespace orvane
