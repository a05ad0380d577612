// A folder of a fuzz target's own, made once under the system's temporary
// folder and removed when the process ends.
#pragma once

#include <stdlib.h>

#include <cstdlib>
#include <filesystem>
#include <string>

namespace orvane::bench {

// `prefix` names the target, e.g. "orvane-menu-fuzz".
inline std::string TempFolder(const std::string& prefix) {
  static std::string dir;  // one per process: atexit takes no argument
  dir = std::filesystem::temp_directory_path().string() + "/" + prefix + "-XXXXXX";
  if (!::mkdtemp(dir.data())) std::abort();
  std::atexit([] {
    std::error_code ignored;
    std::filesystem::remove_all(dir, ignored);
  });
  return dir;
}

}  // namespace orvane::bench
