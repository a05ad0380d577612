// Changes only from our own pages. Browsers say where a request comes from
// (Sec-Fetch-Site, Origin); a page on another site, another port or a
// sibling host must not be able to change anything through a logged-in
// administrator's browser. Scripts and curl send neither header and keep
// working. Plain functions over header values: no HTTP types.
#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace orvane {

// "scheme://host[:port]" of a URL (or of an origin), lower-cased, the
// scheme's default port dropped; empty when `url` names no http(s) origin.
std::string OriginOf(std::string_view url);

// Whether a changing request must be refused as coming from another site:
// `sec_fetch_site` present and neither "same-origin" nor "none", or
// `origin` present and not the server's own (the Host header's, over TLS
// or not) unless it is one of `trusted`. A trusted origin passes whatever
// Sec-Fetch-Site says (its pages are on another site by definition).
// Empty values mean the header was absent.
bool IsCrossSiteChange(std::string_view sec_fetch_site, std::string_view origin, std::string_view host, bool tls,
                       const std::vector<std::string>& trusted);

}  // namespace orvane
