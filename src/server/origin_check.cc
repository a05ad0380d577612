#include "server/origin_check.h"

namespace orvane {
namespace {

std::string Lower(std::string_view s) {
  std::string out(s);
  for (char& c : out)
    if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
  return out;
}

}  // namespace

std::string OriginOf(std::string_view url) {
  std::string lower = Lower(url);
  std::string_view rest = lower;
  std::string scheme;
  for (const char* s : {"http", "https"}) {
    if (rest.starts_with(std::string(s) + "://")) scheme = s;
  }
  if (scheme.empty()) return {};  // "null", a file page, no scheme: never an origin we know
  rest.remove_prefix(scheme.size() + 3);
  std::string_view authority = rest.substr(0, rest.find_first_of("/?#"));
  if (authority.empty() || authority.find('@') != std::string_view::npos) return {};
  // The port is after the last ':' that is outside an IPv6 literal's brackets.
  size_t colon = authority.rfind(':');
  if (colon != std::string_view::npos && authority.find(']', colon) == std::string_view::npos) {
    std::string_view port = authority.substr(colon + 1);
    if (port == (scheme == "https" ? "443" : "80") || port.empty()) authority = authority.substr(0, colon);
  }
  return scheme + "://" + std::string(authority);
}

bool IsCrossSiteChange(std::string_view sec_fetch_site, std::string_view origin, std::string_view host, bool tls,
                       const std::vector<std::string>& trusted) {
  const std::string from = origin.empty() ? std::string() : OriginOf(origin);
  if (!from.empty()) {
    for (const std::string& t : trusted)
      if (OriginOf(t) == from) return false;
  }
  if (!sec_fetch_site.empty()) {
    std::string site = Lower(sec_fetch_site);
    if (site != "same-origin" && site != "none") return true;
  }
  if (origin.empty()) return false;
  // Our own origin as the browser addressed us; an origin that names no
  // http(s) place ("null") is never ours.
  return from.empty() || from != OriginOf(std::string(tls ? "https://" : "http://") + std::string(host));
}

}  // namespace orvane
