#include "server/metrics.h"

#include <prometheus/text_serializer.h>

#include <chrono>
#include <sstream>

#include "data/connection_pool.h"
#include "requests/request_table.h"
#include "server/server_state.h"

namespace orvane {
namespace {

constexpr std::string_view kOther = "other";

// Seconds, from half a millisecond (a cached read) to ten seconds (a
// writer waiting on a lock).
const prometheus::Histogram::BucketBoundaries& LatencyBuckets() {
  static const prometheus::Histogram::BucketBoundaries buckets{0.0005, 0.001, 0.0025, 0.005, 0.01, 0.025, 0.05,
                                                               0.1,    0.25,  0.5,    1,     2.5,  5,     10};
  return buckets;
}

bool IsCodeChar(char c) { return (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '_'; }

}  // namespace

std::string ErrorCodeOf(std::string_view answer) {
  constexpr std::string_view kPrefix = "ERROR:";
  constexpr size_t kLongest = 64;
  if (answer.substr(0, kPrefix.size()) != kPrefix) return "OTHER";
  std::string_view rest = answer.substr(kPrefix.size());
  size_t n = 0;
  while (n < rest.size() && IsCodeChar(rest[n])) ++n;
  bool ended = n == rest.size() || rest[n] == ' ' || rest[n] == '\r' || rest[n] == '\n';
  if (n == 0 || n > kLongest || !ended) return "OTHER";
  return std::string(rest.substr(0, n));
}

Metrics::Metrics()
    : requests_(prometheus::BuildCounter()
                    .Name("orvane_requests_total")
                    .Help("Answered requests by request code and answer class")
                    .Register(registry_)),
      latency_(prometheus::BuildHistogram()
                   .Name("orvane_request_duration_seconds")
                   .Help("Time from the request's arrival to its answer, by request code")
                   .Register(registry_)),
      connections_(prometheus::BuildGauge()
                       .Name("orvane_db_connections")
                       .Help("Pooled database connections in use and idle")
                       .Register(registry_)),
      sessions_(prometheus::BuildGauge().Name("orvane_sessions").Help("Login sessions held").Register(registry_)),
      proxy_exchanges_(prometheus::BuildCounter()
                           .Name("orvane_mail_proxy_exchanges_total")
                           .Help("Exchanges with the mail server's exe proxy")
                           .Register(registry_)
                           .Add({})),
      proxy_failures_(prometheus::BuildCounter()
                          .Name("orvane_mail_proxy_failures_total")
                          .Help("Exchanges with the mail server's exe proxy that failed")
                          .Register(registry_)
                          .Add({})),
      in_use_(connections_.Add({{"state", "in_use"}})),
      idle_(connections_.Add({{"state", "idle"}})) {
  for (const RequestRoute& route : RequestTable())
    latency_by_code_.emplace(route.code, &latency_.Add({{"code", std::string(route.code)}}, LatencyBuckets()));
  latency_by_code_.emplace(kOther, &latency_.Add({{"code", std::string(kOther)}}, LatencyBuckets()));
}

void Metrics::NoteRequest(const RequestRoute* route, std::string_view answer, long long micros) {
  std::string_view code = route ? route->code : kOther;
  auto histogram = latency_by_code_.find(code);
  if (histogram == latency_by_code_.end()) histogram = latency_by_code_.find(kOther);
  histogram->second->Observe(static_cast<double>(micros) / 1e6);

  prometheus::Labels labels{{"code", std::string(histogram->first)}};
  if (answer == "OK") {
    labels.emplace("class", "ok");
  } else if (answer.starts_with("ERROR:")) {
    labels.emplace("class", "error");
    labels.emplace("error", ErrorCodeOf(answer));
  } else {
    labels.emplace("class", "data");
  }
  requests_.Add(labels).Increment();
}

void Metrics::NoteProxyExchange(bool ok) {
  proxy_exchanges_.Increment();
  if (!ok) proxy_failures_.Increment();
}

void Metrics::NoteHistory(int retention_days, long long bytes) {
  std::call_once(history_once_, [this] {
    history_days_ = &prometheus::BuildGauge()
                         .Name("orvane_history_retention_days")
                         .Help("Days the change history keeps its entries")
                         .Register(registry_)
                         .Add({});
    history_bytes_ = &prometheus::BuildGauge()
                          .Name("orvane_history_bytes")
                          .Help("Size of the change history in the database")
                          .Register(registry_)
                          .Add({});
  });
  history_days_->Set(retention_days);
  if (bytes >= 0) history_bytes_->Set(static_cast<double>(bytes));
}

std::string Metrics::Render(SessionStore& sessions) {
  const data::ConnectionPool& pool = data::ConnectionPool::Instance();
  in_use_.Set(static_cast<double>(pool.InUseCount()));
  idle_.Set(static_cast<double>(pool.IdleCount()));
  // A store that cannot count cheaply shows no sessions line at all.
  if (std::optional<size_t> count = sessions.Count()) sessions_.Add({}).Set(static_cast<double>(*count));
  std::ostringstream out;
  prometheus::TextSerializer().Serialize(out, registry_.Collect());
  return out.str();
}

// Open like /healthz: it names no user and no value, only counts. Keep it
// off the public side of a load balancer.
void RegisterMetricsRoute(Router& server, ServerState& state) {
  server.Get("/metrics", [&state](const HttpRequest& req, HttpResponse& res) {
    auto start = std::chrono::steady_clock::now();
    std::string body = state.metrics.Render(*state.sessions);
    res.status = 200;
    res.SetHeader("Cache-Control", "no-store");
    res.SetContent(std::move(body), "text/plain; version=0.0.4; charset=utf-8");
    auto micros =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count();
    state.access_log.Write({req.remote_address, req.method, req.path, "", 200, micros, "(metrics)", false, {}});
  });
}

}  // namespace orvane
