// Built into orvane_data_seam only (see CMakeLists.txt).
#include "data/failure_seam.h"

#include <algorithm>
#include <mutex>
#include <stdexcept>
#include <utility>
#include <vector>

namespace orvane::data::seam {
namespace {

struct Armed {
  Point point;
  int countdown;  // calls still to count; fires at 0
  Cause failure;
};

struct State {
  std::mutex mu;
  std::vector<Armed> armed;  // in the order armed; guarded by mu
};

State& TheState() {
  // Never destroyed: request threads may still reach a hook at exit.
  static State* state = new State;
  return *state;
}

}  // namespace

void FailAt(Point point, int nth, std::string sqlstate, std::string message, long native) {
  if (nth < 1) throw std::invalid_argument("FailAt: calls are counted from 1");
  State& s = TheState();
  std::lock_guard<std::mutex> lock(s.mu);
  s.armed.push_back({point, nth, Cause{native, std::move(sqlstate), std::move(message)}});
}

void ClearFailures() {
  State& s = TheState();
  std::lock_guard<std::mutex> lock(s.mu);
  s.armed.clear();
}

bool Fails(Point point, Cause& diag) {
  State& s = TheState();
  std::lock_guard<std::mutex> lock(s.mu);
  for (Armed& a : s.armed)
    if (a.point == point && a.countdown > 0) --a.countdown;
  auto due = std::find_if(s.armed.begin(), s.armed.end(),
                          [point](const Armed& a) { return a.point == point && a.countdown == 0; });
  if (due == s.armed.end()) return false;
  diag = std::move(due->failure);
  s.armed.erase(due);
  return true;
}

}  // namespace orvane::data::seam
