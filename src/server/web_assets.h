// The administration pages compiled into the program: every file under
// web/, turned into a table by cmake/embed_web.cmake at build time (the
// generated source lives in the build tree), each also gzip-compressed.
#pragma once

#include <span>
#include <string_view>

namespace orvane {

struct WebAsset {
  std::string_view path;          // relative to web/, "/" separated: "js/api.js"
  std::string_view content_type;  // from the file's extension
  std::string_view bytes;
  std::string_view gzip;  // the bytes gzip-compressed at build time; empty when that saves nothing
  std::string_view hash;  // of the bytes: the start of a SHA-256 in hex
};

std::span<const WebAsset> WebAssets();

}  // namespace orvane
