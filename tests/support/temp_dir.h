// A real temporary folder for one test, removed with everything in it.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>

namespace orvane::testing {

class TempDir {
 public:
  TempDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "orvane-test-XXXXXX").string();
    path_ = ::mkdtemp(pattern.data());
  }
  ~TempDir() {
    std::error_code ec;
    std::filesystem::remove_all(path_, ec);
  }
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  std::string File(const std::string& name) const { return path_ + "/" + name; }
  // Writes `contents` to `name` (folders created) and returns its path.
  std::string Write(const std::string& name, const std::string& contents) const {
    std::filesystem::path p = File(name);
    std::filesystem::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary | std::ios::trunc) << contents;
    return p.string();
  }

 private:
  std::string path_;
};

}  // namespace orvane::testing
