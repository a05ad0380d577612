#include "server/static_files.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
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
      {".html", "text/html; charset=utf-8"},
      {".css", "text/css; charset=utf-8"},
      {".js", "text/javascript; charset=utf-8"},
      {".mjs", "text/javascript; charset=utf-8"},
      {".json", "application/json"},
      {".svg", "image/svg+xml"},
      {".png", "image/png"},
      {".ico", "image/x-icon"},
      {".txt", "text/plain; charset=utf-8"},
  };
  for (const auto& [ext, type] : kTypes)
    if (path.ends_with(ext)) return type;
  return {};
}

// FNV-1a: a folder's file is hashed as it is read (working on the pages).
std::string HashOf(std::string_view bytes) {
  uint64_t h = 14695981039346656037ull;
  for (unsigned char c : bytes) h = (h ^ c) * 1099511628211ull;
  char hex[17];
  std::snprintf(hex, sizeof hex, "%016llx", static_cast<unsigned long long>(h));
  return hex;
}

std::string Quoted(std::string_view hash) {
  std::string tag;
  tag.reserve(hash.size() + 2);
  tag.push_back('"');
  tag.append(hash);
  tag.push_back('"');
  return tag;
}

// A dot-separated part of eight or more hex digits before the extension.
bool NameCarriesHash(std::string_view url_path) {
  std::string_view name = url_path.substr(url_path.rfind('/') + 1);
  std::vector<std::string> parts = text::Split(std::string(name), ".");
  for (size_t i = 1; i + 1 < parts.size(); ++i)
    if (parts[i].size() >= 8 && parts[i].find_first_not_of("0123456789abcdef") == std::string::npos) return true;
  return false;
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
  std::string content = bytes.str();
  std::string etag = Quoted(HashOf(content));
  return StaticFile{std::string(type), std::move(content), "", std::move(etag)};
}

}  // namespace

std::optional<StaticFile> FindStaticFile(std::string_view url_path, const std::string& web_root) {
  if (!url_path.starts_with('/')) return std::nullopt;
  std::string relative(url_path.substr(1));
  if (relative.empty() || relative.ends_with('/')) relative += "index.html";
  if (!IsPlainPath(relative)) return std::nullopt;
  if (!web_root.empty()) return FromFolder(relative, web_root);
  for (const WebAsset& asset : WebAssets())
    if (asset.path == relative)
      return StaticFile{std::string(asset.content_type), std::string(asset.bytes), std::string(asset.gzip),
                        Quoted(asset.hash)};
  return std::nullopt;
}

std::string_view CacheControlFor(std::string_view url_path) {
  return NameCarriesHash(url_path) ? "public, max-age=31536000, immutable" : "no-cache";
}

void RegisterStaticFiles(Router& server, ServerState& state) {
  auto serve = [&state](const HttpRequest& req, HttpResponse& res) {
    auto start = std::chrono::steady_clock::now();
    std::optional<StaticFile> file = FindStaticFile(req.path, state.web_root);
    int status = 200;
    if (!file) {
      status = 404;
      res.SetContent("Not Found", "text/plain; charset=utf-8");
    } else {
      res.SetHeader("X-Content-Type-Options", "nosniff");
      // No inline script or style anywhere in the pages, so nothing but our
      // own files may run.
      res.SetHeader("Content-Security-Policy", "default-src 'self'; frame-ancestors 'none'");
      res.SetHeader("Cache-Control", std::string(CacheControlFor(req.path)));
      const bool gzip = !file->gzip.empty() && AcceptsGzip(req);
      // The compressed bytes are another representation: another tag.
      std::string etag = gzip ? file->etag.substr(0, file->etag.size() - 1) + "-gzip\"" : file->etag;
      if (!file->gzip.empty()) res.SetHeader("Vary", "Accept-Encoding");
      if (IfNoneMatch(req, etag)) {
        status = 304;
      } else if (gzip) {
        res.SetHeader("Content-Encoding", "gzip");
        res.SetContent(std::move(file->gzip), file->content_type);
      } else {
        res.SetContent(std::move(file->bytes), file->content_type);
      }
      res.SetHeader("ETag", std::move(etag));
    }
    res.status = status;
    long long micros =
        std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::steady_clock::now() - start).count();
    state.access_log.Write({req.remote_address,
                            req.method,
                            req.path,
                            "",
                            status,
                            micros,
                            status == 404 ? std::string_view("Not Found") : "(file)",
                            false,
                            {}});
  };
  server.GetAnyOther(serve, Router::RunOn::kIoThread);
}

}  // namespace orvane
