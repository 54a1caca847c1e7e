#include "gateway/server/RequestRules.h"

#include <boost/beast/core/string.hpp>
#include <boost/beast/http/field.hpp>
#include <boost/beast/http/rfc7230.hpp>

#include <algorithm>
#include <cctype>
#include <string>
#include <string_view>

namespace gk::gateway {

namespace {

namespace http = boost::beast::http;
using boost::beast::iequals;

/// Fields that are there once at most: two could mean one thing here and another elsewhere.
constexpr http::field kSingle[] = {http::field::host,
                                   http::field::origin,
                                   http::field::content_type,
                                   http::field::content_length,
                                   http::field::authorization,
                                   http::field::cookie,
                                   http::field::sec_websocket_key,
                                   http::field::sec_websocket_version};

constexpr unsigned kOneDotOne = 11;

/// The authority and the rest of a target in absolute form, nothing for one in any other.
struct Absolute {
  std::string_view scheme;
  std::string_view authority;
  std::string_view rest;
};
std::optional<Absolute> absolute(std::string_view target) {
  const std::size_t colon = target.find("://");
  if (target.starts_with('/') || colon == std::string_view::npos) {
    return std::nullopt;
  }
  const std::string_view behind = target.substr(colon + 3);
  const std::size_t end = std::min(behind.find_first_of("/?"), behind.size());
  return Absolute{target.substr(0, colon), behind.substr(0, end), behind.substr(end)};
}

std::optional<HttpResponse> refuseTarget(std::string_view target) {
  const std::optional<Absolute> whole = absolute(target);
  if (whole && !iequals(whole->scheme, "http")) {
    return errorResponse(421, "only http is spoken here");
  }
  if (whole && (whole->authority.empty() || whole->authority.find('@') != std::string::npos)) {
    return errorResponse(400, "the request's target names no host");
  }
  return std::nullopt;
}

/// Section 6.1: whatever is not sent in chunks alone has an end that nobody here can find.
std::optional<HttpResponse> refuseCoding(const http::request_header<>& header) {
  const auto [first, last] = header.equal_range(http::field::transfer_encoding);
  if (first == last) {
    return std::nullopt;
  }
  if (header.version() < kOneDotOne) {
    return errorResponse(400, "Transfer-Encoding is not known to HTTP/1.0");
  }
  if (header.find(http::field::content_length) != header.end()) {
    return errorResponse(400, "Transfer-Encoding and Content-Length do not go together");
  }
  std::size_t codings = 0;
  bool isChunkedLast = false;
  for (auto field = first; field != last; ++field) {
    for (const auto& coding : http::token_list(field->value())) {
      ++codings;
      isChunkedLast = iequals(coding, "chunked");
    }
  }
  if (!isChunkedLast) {
    return errorResponse(400, "the body must be chunked last, or its end cannot be found");
  }
  if (codings > 1) {
    return errorResponse(501, "no Transfer-Encoding but chunked is understood");
  }
  return std::nullopt;
}

} // namespace

HttpRequest requestHead(const http::request_header<>& header) {
  const auto field = [&header](http::field name) {
    const auto found = header.find(name);
    return found != header.end() ? std::optional(std::string(found->value())) : std::nullopt;
  };
  HttpRequest head;
  head.method = std::string(header.method_string());
  head.target = std::string(header.target());
  head.host = field(http::field::host).value_or("");
  if (const std::optional<Absolute> whole = absolute(head.target)) {
    head.host = std::string(whole->authority);
    head.target = (whole->rest.starts_with('/') ? "" : "/") + std::string(whole->rest);
  }
  head.contentType = field(http::field::content_type).value_or("");
  head.origin = field(http::field::origin);
  head.authorization = field(http::field::authorization).value_or("");
  head.cookie = field(http::field::cookie).value_or("");
  head.takesGzip =
      field(http::field::accept_encoding).value_or("").find("gzip") != std::string::npos;
  head.ifNoneMatch = field(http::field::if_none_match).value_or("");
  return head;
}

std::optional<HttpResponse> refuseFraming(const http::request_header<>& header) {
  for (const http::field name : kSingle) {
    if (header.count(name) > 1) {
      return errorResponse(400,
                           "there are several " + std::string(http::to_string(name)) + " fields");
    }
  }
  if (header.version() >= kOneDotOne && header.find(http::field::host) == header.end()) {
    return errorResponse(400, "there is no Host field");
  }
  if (std::optional<HttpResponse> refusal = refuseCoding(header)) {
    return refusal;
  }
  const auto expect = header.find(http::field::expect);
  if (expect != header.end() && header.version() >= kOneDotOne &&
      !iequals(expect->value(), "100-continue")) {
    return errorResponse(417, "nothing but 100-continue can be expected");
  }
  return refuseTarget(std::string_view(header.target()));
}

} // namespace gk::gateway
