#include "server/router.h"

#include <algorithm>

namespace orvane {

void Router::Get(std::string path, Handler handler, RunOn run_on) {
  routes_.push_back({"GET", std::move(path), std::move(handler), run_on, {}});
}

void Router::Post(std::string path, Handler handler, RunOn run_on) {
  routes_.push_back({"POST", std::move(path), std::move(handler), run_on, {}});
}

void Router::PostUpload(std::string path, Handler handler, size_t max_body) {
  routes_.push_back({"POST", std::move(path), std::move(handler), RunOn::kWorker, max_body});
}

void Router::GetAnyOther(Handler handler, RunOn run_on) { any_get_ = {"GET", "", std::move(handler), run_on, {}}; }

const Router::Route& Router::Find(std::string_view method, std::string_view path) const {
  const bool get = method == "GET" || method == "HEAD";
  for (const Route& r : routes_)
    if (r.path == path && (r.method == method || (get && r.method == "GET"))) return r;
  return get && any_get_.handler ? any_get_ : not_found_;
}

size_t Router::LargestBody(size_t edge_limit) const {
  size_t largest = edge_limit;
  for (const Route& r : routes_)
    if (r.max_body) largest = std::max(largest, *r.max_body);
  return largest;
}

}  // namespace orvane
