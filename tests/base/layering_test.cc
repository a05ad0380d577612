// The layers of src/ point only down: base <- data <- dispatch <- accounts, history
// <- org, members <- requests <- server <- cli. A file that includes a
// header of a layer above its own fails here, naming the file and line.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>
#include <string>

namespace orvane {
namespace {

namespace fs = std::filesystem;

// Accounts (user storage, the mail server and its lists) is the floor the
// group and membership registrations call down to for the mail lists; org
// and members share the floor above it. The CSV transfer composes the
// operations as the request table does, beside it.
const std::map<std::string, int> kLayers = {
    {"base", 0},    {"data", 1},     {"dispatch", 2}, {"accounts", 3}, {"org", 4},      {"members", 4},
    {"history", 3}, {"requests", 5}, {"restore", 5},  {"transfer", 5}, {"server", 6}, {"cli", 7},
};

TEST(Layering, EveryIncludePointsToTheSameLayerOrBelow) {
  const fs::path src = fs::path(ORVANE_SOURCE_DIR) / "src";
  const std::regex include(R"re(^\s*#\s*include\s+"([a-z_]+)/[^"]+")re");
  int files = 0;
  std::string violations;
  for (const auto& entry : fs::recursive_directory_iterator(src)) {
    if (!entry.is_regular_file()) continue;
    std::string folder = fs::relative(entry.path(), src).begin()->string();
    auto own = kLayers.find(folder);
    ASSERT_NE(own, kLayers.end()) << "src/" << folder << " has no layer: add it to kLayers and the architecture";
    ++files;
    std::ifstream in(entry.path());
    std::string line;
    for (int number = 1; std::getline(in, line); ++number) {
      std::smatch m;
      if (!std::regex_search(line, m, include)) continue;
      auto target = kLayers.find(m[1]);
      if (target == kLayers.end() || target->second > own->second)
        violations += fs::relative(entry.path(), src).string() + ":" + std::to_string(number) + ": " + line + "\n";
    }
  }
  EXPECT_GT(files, 50);
  EXPECT_EQ(violations, "");
}

}  // namespace
}  // namespace orvane
