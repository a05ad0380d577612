#include "server/http_message.h"

#include "base/text.h"

namespace orvane {
namespace {

std::string_view Trimmed(std::string_view s) {
  while (!s.empty() && (s.front() == ' ' || s.front() == '\t')) s.remove_prefix(1);
  while (!s.empty() && (s.back() == ' ' || s.back() == '\t')) s.remove_suffix(1);
  return s;
}

// Calls `each` with the trimmed items of a comma-separated header value
// until it returns true.
template <class F>
bool AnyItem(std::string_view list, F each) {
  while (!list.empty()) {
    size_t comma = list.find(',');
    if (each(Trimmed(list.substr(0, comma)))) return true;
    if (comma == std::string_view::npos) break;
    list.remove_prefix(comma + 1);
  }
  return false;
}

}  // namespace

bool IfNoneMatch(const HttpRequest& req, std::string_view etag) {
  const std::string header = req.Header("If-None-Match");
  if (header.empty() || etag.empty()) return false;
  if (etag.starts_with("W/")) etag.remove_prefix(2);
  return AnyItem(header, [etag](std::string_view tag) {
    if (tag.starts_with("W/")) tag.remove_prefix(2);
    return tag == "*" || tag == etag;
  });
}

bool AcceptsGzip(const HttpRequest& req) {
  return AnyItem(req.Header("Accept-Encoding"), [](std::string_view item) {
    size_t semi = item.find(';');
    if (!text::EqualsIgnoreCase(Trimmed(item.substr(0, semi)), "gzip")) return false;
    if (semi == std::string_view::npos) return true;
    std::string_view q = Trimmed(item.substr(semi + 1));
    // "q=0", "q=0.0", "q=0.000": refused; any other weight takes it.
    return !(q.starts_with("q=0") && q.find_first_not_of("0.", 2) == std::string_view::npos);
  });
}

}  // namespace orvane
