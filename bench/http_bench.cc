// Throughput over HTTP keep-alive on loopback: request "001" (configuration
// lookups and the menu catalogue) against GET /healthz, on the same server in
// the same run, then both again over HTTPS (a certificate made with the
// openssl tool; skipped when there is none). Bounded: each phase runs for a
// fixed number of seconds.
//
//   http_bench [seconds-per-phase] [client-threads]
#include <httplib.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <thread>
#include <vector>

#include "server/http_server.h"

namespace {

struct Phase {
  long long requests = 0;
  long long failures = 0;
  double seconds = 0;
};

Phase Drive(const std::string& origin, const std::string& target, const std::string& expected, int threads,
            double seconds) {
  std::atomic<long long> ok{0}, bad{0};
  auto deadline = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
  std::vector<std::thread> workers;
  auto start = std::chrono::steady_clock::now();
  for (int t = 0; t < threads; ++t) {
    workers.emplace_back([&] {
      httplib::Client client(origin);
      client.enable_server_certificate_verification(false);  // our own throwaway certificate
      client.set_keep_alive(true);
      client.set_tcp_nodelay(true);
      while (std::chrono::steady_clock::now() < deadline) {
        auto res = client.Get(target);
        (res && res->body == expected ? ok : bad)++;
      }
    });
  }
  for (auto& w : workers) w.join();
  double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return {ok.load(), bad.load(), elapsed};
}

}  // namespace

int main(int argc, char** argv) {
  double seconds = argc > 1 ? std::atof(argv[1]) : 5;
  int threads = argc > 2 ? std::atoi(argv[2]) : 2;
  char dir[] = "/tmp/orvane-http-bench-XXXXXX";
  std::string folder = ::mkdtemp(dir);
  std::ofstream(folder + "/ORVANE.ini") << "LOCAL_DB_DSN=bench\nMAINFORM_BACK_COLOR=C0D0E0\nML_MODE=2\nML_USEFLG=1\n"
                                           "ML_ISLOCAL=True\nML_ADDUSEFLG=0\nML_EXEPROXY_PORT=5300\n"
                                           "ML_SERVERIP=127.0.0.1\nML_SERVER=example.jp\nML_FOLDER=/srv/imail\n"
                                           "JNJI_MODE=0\n";
  std::ofstream(folder + "/menuinfo.csv") << "01,スケジュール,1\n07,掲示板,1\n23,ワークフロー,1\n";

  orvane::ServerState state(folder + "/ORVANE.ini",
                            std::make_unique<orvane::InMemorySessionStore>(std::chrono::minutes(20)),
                            orvane::SystemClock::Instance(), nullptr);
  orvane::LoadApplicationValues(state.config, state.app).IgnoreError();  // no catalogue: no menus
  state.access.anonymous_reads = true;                                   // 001 is a query: no login to keep alive
  auto rate = [](const Phase& p) { return p.requests / p.seconds; };
  std::printf("client threads: %d, %.1f s per phase, keep-alive, loopback\n", threads, seconds);
  long long failures = 0;
  auto run = [&](const char* scheme, orvane::HttpOptions options) {
    orvane::HttpServer server(state, options);
    std::string error;
    int port = server.Bind(error);
    if (port < 0) {
      std::printf("%s: %s\n", scheme, error.c_str());
      ++failures;
      return;
    }
    std::thread serving([&] { server.Run(); });
    while (!server.IsRunning()) std::this_thread::yield();
    const std::string origin = std::string(scheme) + "://127.0.0.1:" + std::to_string(port);
    Phase health = Drive(origin, "/healthz", "OK", threads, seconds);
    Phase info = Drive(origin, "/orvane?ReqNo=001", "C0D0E0,2,1,0,1,2,ワークフロー,1,1,掲示板", threads, seconds);
    server.Stop();
    serving.join();
    std::printf("%-5s GET /healthz  %9.0f req/s  (%lld ok, %lld failed)\n", scheme, rate(health), health.requests,
                health.failures);
    std::printf("%-5s GET ReqNo=001 %9.0f req/s  (%lld ok, %lld failed)\n", scheme, rate(info), info.requests,
                info.failures);
    std::printf("%-5s 001 / healthz %9.2f\n", scheme, rate(info) / rate(health));
    failures += health.failures + info.failures;
  };
  run("http", {"127.0.0.1", 0, 4});
  orvane::HttpOptions tls{"127.0.0.1", 0, 4};
  tls.tls_cert = folder + "/cert.pem";
  tls.tls_key = folder + "/key.pem";
  const std::string make_cert =
      "openssl req -x509 -newkey ec -pkeyopt ec_paramgen_curve:prime256v1 -nodes -days 1 "
      "-subj /CN=localhost -keyout " +
      tls.tls_key + " -out " + tls.tls_cert + " >/dev/null 2>&1";
  if (std::system(make_cert.c_str()) == 0) {
    run("https", tls);
  } else {
    std::printf("https: skipped (no openssl tool to make a certificate)\n");
  }
  return failures == 0 ? 0 : 1;
}
