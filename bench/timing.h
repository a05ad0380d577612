// Timing shared by the benchmark drivers.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <vector>

namespace orvane::bench {

// Median wall times in milliseconds of `repeat` runs of each function after
// one warm-up run each. The runs take turns, so a busy machine slows all
// of them alike and the ratios hold.
inline std::vector<double> MediansMs(int repeat, const std::vector<std::function<void()>>& runs) {
  std::vector<std::vector<double>> times(runs.size());
  for (const auto& run : runs) run();
  for (int i = 0; i < repeat; ++i) {
    for (size_t f = 0; f < runs.size(); ++f) {
      auto start = std::chrono::steady_clock::now();
      runs[f]();
      times[f].push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count());
    }
  }
  std::vector<double> medians;
  for (auto& t : times) {
    std::sort(t.begin(), t.end());
    medians.push_back(t[t.size() / 2]);
  }
  return medians;
}

}  // namespace orvane::bench
