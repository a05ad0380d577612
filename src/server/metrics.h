// What `GET /metrics` reports, in Prometheus' text format (prometheus-cpp's
// core library; the route is ours):
//
//   orvane_requests_total{code,class[,error]}   answered requests
//   orvane_request_duration_seconds{code}      latency histogram
//   orvane_db_connections{state}               pool: "in_use", "idle"
//   orvane_sessions                            login sessions held
//   orvane_mail_proxy_exchanges_total          exchanges with the exe proxy
//   orvane_mail_proxy_failures_total           ... of which failed
//   orvane_history_retention_days              the change history's period
//   orvane_history_bytes                       its size in the database
//                                              (both once serve has read them)
//
// `code` is a request code of the request table, or "other"; `class` is
// "ok" (the answer "OK"), "error" (an "ERROR:" answer, `error` holding its
// code without the trail) or "data". No label ever carries a field value,
// a user id or a password. Thread-safe.
#pragma once

#include <prometheus/counter.h>
#include <prometheus/family.h>
#include <prometheus/gauge.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <map>
#include <mutex>
#include <string>
#include <string_view>

#include "dispatch/proxy_exchange_counter.h"
#include "server/router.h"

namespace orvane {

class SessionStore;
struct RequestRoute;
struct ServerState;

// The error label of an answer: the code after "ERROR:" when it is one
// (capital letters, digits, "_", ended by the answer's end, a blank or a
// line break), else "OTHER"; the trail never counts.
std::string ErrorCodeOf(std::string_view answer);

class Metrics final : public ProxyExchangeCounter {
 public:
  Metrics();

  // One answered request: `route` the request table's row (null: "other").
  void NoteRequest(const RequestRoute* route, std::string_view answer, long long micros);
  void NoteProxyExchange(bool ok) override;

  // The change history's period and size (bytes below 0: not known);
  // their lines appear from the first call on.
  void NoteHistory(int retention_days, long long bytes);

  // The exposition text, the gauges read now.
  std::string Render(SessionStore& sessions);

 private:
  prometheus::Registry registry_;
  prometheus::Family<prometheus::Counter>& requests_;
  prometheus::Family<prometheus::Histogram>& latency_;
  prometheus::Family<prometheus::Gauge>& connections_;
  prometheus::Family<prometheus::Gauge>& sessions_;
  prometheus::Counter& proxy_exchanges_;
  prometheus::Counter& proxy_failures_;
  prometheus::Gauge& in_use_;
  prometheus::Gauge& idle_;
  std::once_flag history_once_;
  prometheus::Gauge* history_days_ = nullptr;
  prometheus::Gauge* history_bytes_ = nullptr;
  // One histogram per request code, made at the start; read-only after.
  std::map<std::string_view, prometheus::Histogram*> latency_by_code_;
};

// GET /metrics on `server`, answered from `state.metrics`.
void RegisterMetricsRoute(Router& server, ServerState& state);

}  // namespace orvane
