// ComIniFileLoad of one key in an unchanged 40-line file, against the same
// lookup in an already parsed map. The budget is one stat per call.
#include <benchmark/benchmark.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <string>

#include "dispatch/config.h"

namespace {

std::string WriteFortyLines() {
  char dir[] = "/tmp/orvane-bench-XXXXXX";
  std::string path = std::string(::mkdtemp(dir)) + "/ORVANE.ini";
  std::ofstream out(path);
  out << "# orvane configuration\n";
  for (int i = 0; i < 37; ++i) out << "SOME_KEY_" << i << " = value_" << i << "   # comment\n";
  out << "ML_FOLDER=/srv/imail\nLOCAL_DB_DSN = orvane_demo\n";
  return path;
}

const std::string& Path() {
  static const std::string path = WriteFortyLines();
  return path;
}

void BM_ComIniFileLoad(benchmark::State& state) {
  orvane::ConfigFile config(Path());
  std::string value;
  for (auto _ : state) {
    orvane::Status s = config.ComIniFileLoad("LOCAL_DB_DSN", value);
    benchmark::DoNotOptimize(s);
    benchmark::DoNotOptimize(value);
  }
}
BENCHMARK(BM_ComIniFileLoad);

void BM_ParsedMapLookup(benchmark::State& state) {
  std::ifstream in(Path());
  std::string contents((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  orvane::ConfigEntries entries = orvane::ParseConfigText(contents);
  std::string value;
  for (auto _ : state) {
    auto it = entries.find("LOCAL_DB_DSN");
    value = it->second;
    benchmark::DoNotOptimize(value);
  }
}
BENCHMARK(BM_ParsedMapLookup);

// The floor: the one stat that every lookup makes.
void BM_StatOnly(benchmark::State& state) {
  struct stat st {};
  for (auto _ : state) benchmark::DoNotOptimize(::stat(Path().c_str(), &st));
}
BENCHMARK(BM_StatOnly);

void BM_ParseWholeFile(benchmark::State& state) {
  std::ifstream in(Path());
  std::string contents((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
  for (auto _ : state) benchmark::DoNotOptimize(orvane::ParseConfigText(contents));
}
BENCHMARK(BM_ParseWholeFile);

}  // namespace
