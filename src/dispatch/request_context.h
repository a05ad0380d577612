// RequestContext: everything one request needs, the system's web-class
// instance. Created per request by the HTTP front end or `orvane request`,
// filled by WebClass_Start, handed to exactly one operation, then dropped.
//
// Not thread-safe by itself: one request, one thread. The shared objects it
// points at (configuration, session, application store, clock) are.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/clock.h"
#include "base/status.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "dispatch/field_rules.h"
#include "dispatch/proxy_exchange_counter.h"
#include "dispatch/request_fields.h"
#include "dispatch/session.h"

namespace orvane {

struct Enlistment;

class RequestContext {
 public:
  RequestContext(const ConfigFile& config, Session& session, ApplicationStore& app, const Clock& clock)
      : config_(config), session_(session), app_(app), clock_(clock) {}
  // One request, one instance: writes that must not count are made under
  // DiscardedWrites, never on a copy of the request.
  RequestContext(const RequestContext&) = delete;
  RequestContext& operator=(const RequestContext&) = delete;

  // Request values.
  NamedValues fields;   // query string, then form body
  NamedValues cookies;  // the Cookie header
  std::string Field(std::string_view name) const { return fields.Get(name); }
  // Sub-key of a cookie sent as "k1=v1&k2=v2" (percent-decoded), as the
  // pages send "pubCookie".
  std::string CookieValue(std::string_view cookie, std::string_view key) const;

  // Request-scoped members fixed by WebClass_Start.
  std::string DBFlg;
  std::string table_suffix;
  std::string USR_MST = "T_USER", SEC_MST = "T_SECTION", SEC_MEM = "T_SECMEMBER", PST_MST = "T_POST_MST",
              USR_MNU = "MENU_USER";
  std::string menu_list;
  std::vector<std::string> menu_codes;
  int menu_upper = -1;
  // The kinds of the request's fields, checked by the write frame after the
  // session check (set by WebClass_Start from the request table).
  std::span<const FieldRule> field_rules;
  // True when the request works on the work tables ("DBFlg" is "1").
  bool WorkTables() const;

  // Where the request came from, as its history entry names it.
  std::string client_address = "local";
  // What the write frame's history entry says beyond the request: a
  // caller running an operation on a request's behalf (an undo, a
  // restore) names itself and the entry it undoes. Empty: the request code.
  struct HistoryNote {
    std::string code;
    long undoes = 0;
  } history;
  // Set when the request runs as one step of a larger change that holds
  // the transaction (dispatch/write_frame.h); null for a request of its own.
  Enlistment* enlistment = nullptr;

  // The answer: everything the operation writes, in order.
  void Write(std::string_view s) { response_.append(s); }
  const std::string& response() const { return response_; }
  int http_status = 200;
  // Where exchanges with the exe proxy are counted (metrics); none: not counted.
  ProxyExchangeCounter* proxy_exchanges = nullptr;

  // The database's own account (native error, SQLSTATE, message) of the
  // last failure the request met, for the access log. Never part of the
  // answer. A status without a cause leaves the one kept.
  void NoteFailure(const Status& status) {
    if (!status.ok() && !status.cause().empty()) failure_cause_ = status.cause();
  }
  const Cause& failure_cause() const { return failure_cause_; }

  const ConfigFile& config() const { return config_; }
  Session& session() { return session_; }
  const Session& session() const { return session_; }
  ApplicationStore& app() { return app_; }
  const Clock& clock() const { return clock_; }

 private:
  const ConfigFile& config_;
  Session& session_;
  ApplicationStore& app_;
  const Clock& clock_;
  std::string response_;
  Cause failure_cause_;
  friend class DiscardedWrites;
};

// While it lives, what the request writes (answer, status, noted cause) is
// kept aside and dropped when it goes: for a routine whose outcome, a
// missing key's code included, changes no answer.
class DiscardedWrites {
 public:
  explicit DiscardedWrites(RequestContext& ctx)
      : ctx_(ctx), answer_length_(ctx.response_.size()), http_status_(ctx.http_status), cause_(ctx.failure_cause_) {}
  ~DiscardedWrites() {
    ctx_.response_.resize(answer_length_);
    ctx_.http_status = http_status_;
    ctx_.failure_cause_ = std::move(cause_);
  }
  DiscardedWrites(const DiscardedWrites&) = delete;
  DiscardedWrites& operator=(const DiscardedWrites&) = delete;

 private:
  RequestContext& ctx_;
  size_t answer_length_;
  int http_status_;
  Cause cause_;
};

}  // namespace orvane
