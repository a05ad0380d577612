// The options of `orvane serve` that bound what a client may cost
// (server/edge_limits.h), in whole seconds and bytes on the command line.
#pragma once

#include <CLI/CLI.hpp>

#include "server/http_server.h"

namespace orvane::cli {

struct ServeLimits {
  int max_connections = 512;
  int max_requests = 64;
  int max_headers = 100;
  int header_bytes = 16384;
  int request_line = 8000;
  int body_limit = 1 << 20;
  int header_timeout = 10;
  int body_timeout = 30;
  int idle_timeout = 5;
  int write_timeout = 10;
  int db_timeout = 30;
  int shutdown_grace = 30;

  void Add(CLI::App& cmd);
  void ApplyTo(HttpOptions& http) const;
};

}  // namespace orvane::cli
