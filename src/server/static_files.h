// The administration pages at "/": index.html and the files under it, from
// the table compiled into the program, or from a folder (`serve
// --web-root`, for working on the pages without rebuilding).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "server/router.h"
#include "server/server_state.h"

namespace orvane {

struct StaticFile {
  std::string content_type;
  std::string bytes;
  std::string gzip;  // the same compressed, when the build made it (empty from a folder)
  std::string etag;  // "\"<hash of the bytes>\""
};

// The Cache-Control of a file of the pages: a year for a name that carries
// its content's hash ("app.3f9a1c2e.js": a new version is a new name),
// else "no-cache" (kept, but asked about each time: 304 while unchanged).
std::string_view CacheControlFor(std::string_view url_path);

// The file that the URL path names, or nothing. "/" is index.html. Only
// paths made of plain names are looked up (no "..", ".", empty or
// dot-leading segment, no backslash or NUL); under a folder, only regular
// files that really lie inside it (symbolic links are followed and
// checked).
std::optional<StaticFile> FindStaticFile(std::string_view url_path, const std::string& web_root);

// GET of any path no other route took: the file (compressed when the
// client takes gzip; 304 to a matching If-None-Match), or 404.
void RegisterStaticFiles(Router& server, ServerState& state);

}  // namespace orvane
