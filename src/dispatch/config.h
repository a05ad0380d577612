// The configuration file ORVANE.ini and its one lookup, ComIniFileLoad.
//
// Every call behaves as if the file were read anew, so an edited file takes
// effect with the next request; an unchanged file is not parsed again: the
// parsed lines are cached under the file's identity (device, inode, size,
// modification and change times), checked with one stat per call.
// Thread-safe: one ConfigFile is shared by all request threads.
#pragma once

#include "base/status.h"

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <unordered_map>

namespace orvane {

// The parsed lines of one file: upper-cased key -> value of the first line
// that names the key.
using ConfigEntries = std::unordered_map<std::string, std::string>;

// Parses file contents with the file's line syntax (tabs dropped, blanks
// trimmed, "#" comments, value cut at a second "=", first line wins).
ConfigEntries ParseConfigText(std::string_view contents);

class ConfigFile {
 public:
  explicit ConfigFile(std::string path);

  // A view of `source` for one request: its first lookup asks `source` (one
  // stat), every later one sees that same reading. A request is one
  // operation, and an operation reads the file once; the view must not
  // outlive `source`.
  static ConfigFile ForOneRequest(const ConfigFile& source) { return ConfigFile(source); }

  const std::string& path() const { return path_; }
  // The folder that holds the file, with no trailing "/" ("." for a bare name).
  std::string Folder() const;

  // Looks `key` up. On success `value` holds the value. Otherwise `value` is
  // empty and the failure's trail says why (missing file, missing key or
  // empty value).
  Status ComIniFileLoad(std::string_view key, std::string& value) const;

  // Convenience for callers that only need the value: empty when not found.
  std::string Get(std::string_view key) const;

 private:
  struct Identity {
    unsigned long long dev = 0, ino = 0;
    long long size = 0, mtime_ns = 0, ctime_ns = 0;
    bool operator==(const Identity&) const = default;
  };
  // Null with `error` set when the file cannot be read.
  std::shared_ptr<const ConfigEntries> Load(std::string& error) const;

  // The view's constructor (private: copies are views, see ForOneRequest).
  ConfigFile(const ConfigFile& source);

  std::string path_;
  const ConfigFile* source_ = nullptr;  // set in a view
  mutable std::mutex mu_;
  mutable Identity cached_id_;                           // guarded by mu_
  mutable std::shared_ptr<const ConfigEntries> cached_;  // guarded by mu_
  mutable bool read_ = false;                           // a view's: guarded by mu_
  mutable std::string read_error_;                      // a view's: guarded by mu_
};

}  // namespace orvane
