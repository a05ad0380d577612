// The request and the answer as the routes see them: what the HTTP session
// (http_session.cc, Boost.Beast) read, and what it is to send. Nothing here
// knows of sockets or of the library, so the routes compile and read
// without either.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace orvane {

class HttpRequest {
 public:
  virtual ~HttpRequest() = default;

  std::string method;          // "GET", as sent
  std::string target;          // "/orvane?ReqNo=001", as sent
  std::string path;            // the target before "?", percent-decoded
  std::string body;            // the whole body (bounded by the body limit)
  std::string remote_address;  // the client's IP address

  // The value of the header `name` (any case); empty when absent.
  virtual std::string Header(std::string_view name) const = 0;
  // The part of the target after "?", as sent.
  std::string_view Query() const {
    size_t q = target.find('?');
    return q == std::string::npos ? std::string_view() : std::string_view(target).substr(q + 1);
  }
};

struct HttpResponse {
  int status = 200;
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;  // in the order set; Content-Length is the session's

  // Replaces a header set before under the same name (exact case).
  void SetHeader(std::string name, std::string value) {
    for (auto& [n, v] : headers) {
      if (n == name) {
        v = std::move(value);
        return;
      }
    }
    headers.emplace_back(std::move(name), std::move(value));
  }
  void SetContent(std::string text, std::string content_type) {
    body = std::move(text);
    SetHeader("Content-Type", std::move(content_type));
  }
};

// Whether the request's If-None-Match names `etag` (or is "*"): the client
// holds this answer already and gets 304. Weak tags compare by their value.
bool IfNoneMatch(const HttpRequest& req, std::string_view etag);

// Whether the request's Accept-Encoding takes gzip (not with q=0).
bool AcceptsGzip(const HttpRequest& req);

}  // namespace orvane
