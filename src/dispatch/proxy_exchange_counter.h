// Counts the exchanges with the mail server's exe proxy. The mail routines
// only call it through the request context; the HTTP front end's metrics
// implement it. Implementations are thread-safe.
#pragma once

namespace orvane {

class ProxyExchangeCounter {
 public:
  virtual ~ProxyExchangeCounter() = default;
  // One exchange ended; `ok` false when it failed (connecting, a socket
  // error, a refused command).
  virtual void NoteProxyExchange(bool ok) = 0;
};

}  // namespace orvane
