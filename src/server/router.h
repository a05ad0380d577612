// The route table: which handler answers a method and path, and whether it
// may run on an I/O thread or must go to the worker pool (anything that
// may wait on the database or the mail server). Filled once by
// RegisterRoutes before serving; read-only, so thread-safe, after that.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "server/http_message.h"

namespace orvane {

class Router {
 public:
  using Handler = std::function<void(const HttpRequest&, HttpResponse&)>;
  enum class RunOn { kWorker, kIoThread };
  struct Route {
    std::string method, path;
    Handler handler;
    RunOn run_on = RunOn::kWorker;
    std::optional<size_t> max_body;  // bytes of a body; none: the edge's limit
  };

  // An exact path. HEAD is answered by the GET route (the session sends no body).
  void Get(std::string path, Handler handler, RunOn run_on = RunOn::kWorker);
  void Post(std::string path, Handler handler, RunOn run_on = RunOn::kWorker);
  // A POST whose body may be larger (or must be smaller) than the edge allows others.
  void PostUpload(std::string path, Handler handler, size_t max_body);
  // A GET of any path no route above takes.
  void GetAnyOther(Handler handler, RunOn run_on);
  // Everything else: the handler sets 404 and its text.
  void SetNotFound(Handler handler) { not_found_.handler = std::move(handler); }

  const Route& Find(std::string_view method, std::string_view path) const;
  // The largest body any route takes, `edge_limit` at least: what the
  // parser may let through its head before the route is known.
  size_t LargestBody(size_t edge_limit) const;

 private:
  std::vector<Route> routes_;
  Route any_get_{"GET", "", nullptr, RunOn::kIoThread, {}};
  Route not_found_{"", "", nullptr, RunOn::kIoThread, {}};
};

}  // namespace orvane
