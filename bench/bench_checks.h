// Small pieces the benchmark drivers share: stop on a failed step, and the
// five-digit section codes their generated organisations use.
#pragma once

#include <errno.h>  // program_invocation_short_name

#include <cstdio>
#include <cstdlib>
#include <iostream>
#include <string>

#include "base/status.h"

namespace orvane::bench {

// A benchmark without its set-up measures nothing: say which step failed and stop.
inline void Check(const Status& status, const std::string& what) {
  if (status.ok()) return;
  std::cerr << program_invocation_short_name << ": " << what << ": " << status.trail() << "\n";
  std::exit(1);
}

inline std::string Code(int i) {
  char buf[16];
  std::snprintf(buf, sizeof buf, "%05d", i);
  return buf;
}

}  // namespace orvane::bench
