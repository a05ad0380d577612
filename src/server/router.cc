#include "server/router.h"

namespace orvane {

void Router::Get(std::string path, Handler handler, RunOn run_on) {
  routes_.push_back({"GET", std::move(path), std::move(handler), run_on});
}

void Router::Post(std::string path, Handler handler, RunOn run_on) {
  routes_.push_back({"POST", std::move(path), std::move(handler), run_on});
}

void Router::GetAnyOther(Handler handler, RunOn run_on) { any_get_ = {"GET", "", std::move(handler), run_on}; }

const Router::Route& Router::Find(std::string_view method, std::string_view path) const {
  const bool get = method == "GET" || method == "HEAD";
  for (const Route& r : routes_)
    if (r.path == path && (r.method == method || (get && r.method == "GET"))) return r;
  return get && any_get_.handler ? any_get_ : not_found_;
}

}  // namespace orvane
