// A request context over a real ORVANE.ini in a temporary folder, for the
// tests of the mail channel and the mailing lists. Each Context() is a new
// request (its own response text) on the same configuration. Also the file
// helpers those tests share.
#pragma once

#include <sys/stat.h>

#include <fstream>
#include <memory>
#include <sstream>
#include <string>

#include "base/clock.h"
#include "dispatch/application_store.h"
#include "dispatch/config.h"
#include "dispatch/request_context.h"
#include "dispatch/session.h"
#include "support/temp_dir.h"

namespace orvane::testing {

class MailEnv {
 public:
  MailEnv() : config_(dir_.File("ORVANE.ini")) {}

  const TempDir& dir() const { return dir_; }
  void Ini(const std::string& text) { dir_.Write("ORVANE.ini", text); }
  RequestContext& Context() {
    ctx_ = std::make_unique<RequestContext>(config_, session_, app_, clock_);
    return *ctx_;
  }

 private:
  TempDir dir_;
  ConfigFile config_;
  Session session_;
  ApplicationStore app_;
  FixedClock clock_{LocalTime{2024, 4, 1, 9, 30, 0}};
  std::unique_ptr<RequestContext> ctx_;
};

// The file's bytes; "" when it is missing.
inline std::string ReadFile(const std::string& path) {
  std::ostringstream s;
  s << std::ifstream(path, std::ios::binary).rdbuf();
  return s.str();
}

// An executable shell script standing in for one of the mail server's tools.
inline void WriteTool(const TempDir& dir, const std::string& name, const std::string& body) {
  ::chmod(dir.Write(name, "#!/bin/sh\n" + body).c_str(), 0755);
}

}  // namespace orvane::testing
