#include "server/static_files.h"

#include <httplib.h>

#include <algorithm>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/text.h"
#include "server/web_assets.h"

namespace orvane {
namespace {

namespace fs = std::filesystem;

// Plain names only: what a request can ask for is a file of the pages,
// never a way out of them.
bool IsPlainPath(std::string_view path) {
  if (path.empty() || path.size() > 200) return false;
  for (char c : path)
    if (c == '\\' || c == '\0' || static_cast<unsigned char>(c) < 0x20) return false;
  for (const std::string& segment : text::Split(std::string(path), "/"))
    if (segment.empty() || segment.front() == '.') return false;
  return true;
}

std::string_view ContentTypeOf(std::string_view path) {
  static constexpr std::pair<std::string_view, std::string_view> kTypes[] = {
      {".html", "text/html; charset=utf-8"}, {".css", "text/css; charset=utf-8"},
      {".js", "text/javascript; charset=utf-8"}, {".mjs", "text/javascript; charset=utf-8"},
      {".json", "application/json"}, {".svg", "image/svg+xml"}, {".png", "image/png"},
      {".ico", "image/x-icon"}, {".txt", "text/plain; charset=utf-8"},
  };
  for (const auto& [ext, type] : kTypes)
    if (path.ends_with(ext)) return type;
  return {};
}

std::optional<StaticFile> FromFolder(const std::string& relative, const std::string& web_root) {
  std::error_code ec;
  fs::path root = fs::canonical(web_root, ec);
  if (ec) return std::nullopt;
  fs::path file = fs::canonical(root / relative, ec);
  if (ec || !fs::is_regular_file(file, ec)) return std::nullopt;
  // A symbolic link may point anywhere: what counts is where the file is.
  auto [end, unused] = std::mismatch(root.begin(), root.end(), file.begin(), file.end());
  if (end != root.end()) return std::nullopt;
  std::string_view type = ContentTypeOf(relative);
  if (type.empty()) return std::nullopt;
  std::ifstream in(file, std::ios::binary);
  if (!in) return std::nullopt;
  std::ostringstream bytes;
  bytes << in.rdbuf();
  return StaticFile{std::string(type), bytes.str()};
}

}  // namespace

std::optional<StaticFile> FindStaticFile(std::string_view url_path, const std::string& web_root) {
  if (!url_path.starts_with('/')) return std::nullopt;
  std::string relative(url_path.substr(1));
  if (relative.empty() || relative.ends_with('/')) relative += "index.html";
  if (!IsPlainPath(relative)) return std::nullopt;
  if (!web_root.empty()) return FromFolder(relative, web_root);
  for (const WebAsset& asset : WebAssets())
    if (asset.path == relative) return StaticFile{std::string(asset.content_type), std::string(asset.bytes)};
  return std::nullopt;
}

void RegisterStaticFiles(httplib::Server& server, ServerState& state) {
  server.Get(R"(/.*)", [&state](const httplib::Request& req, httplib::Response& res) {
    auto start = std::chrono::steady_clock::now();
    std::optional<StaticFile> file = FindStaticFile(req.path, state.web_root);
    if (!file) {
      res.status = 404;  // the server's error handler answers and logs it
      return;
    }
    res.status = 200;
    res.set_header("X-Content-Type-Options", "nosniff");
    // No inline script or style anywhere in the pages, so nothing but our
    // own files may run.
    res.set_header("Content-Security-Policy", "default-src 'self'; frame-ancestors 'none'");
    res.set_header("Cache-Control", "no-cache");
    res.set_content(std::move(file->bytes), file->content_type);
    long long micros =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count();
    state.access_log.Write({req.remote_addr, req.method, req.path, "", 200, micros, "(file)", false, {}});
  });
}

}  // namespace orvane
