// The administration pages at "/": index.html and the files under it, from
// the table compiled into the program, or from a folder (`serve
// --web-root`, for working on the pages without rebuilding).
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "server/server_state.h"

namespace httplib {
class Server;
}

namespace orvane {

struct StaticFile {
  std::string content_type;
  std::string bytes;
};

// The file that the URL path names, or nothing. "/" is index.html. Only
// paths made of plain names are looked up (no "..", ".", empty or
// dot-leading segment, no backslash or NUL); under a folder, only regular
// files that really lie inside it (symbolic links are followed and
// checked).
std::optional<StaticFile> FindStaticFile(std::string_view url_path, const std::string& web_root);

// GET of any path no other route took: the file, or 404.
void RegisterStaticFiles(httplib::Server& server, ServerState& state);

}  // namespace orvane
