#include "gateway/server/ResponseMessage.h"

#include <boost/beast/core/string.hpp>
#include <boost/beast/http/status.hpp>

#include <algorithm>
#include <string_view>
#include <utility>

namespace gk::gateway {

namespace {

namespace http = boost::beast::http;

void appendField(std::string& out, std::string_view name, std::string_view value) {
  out.append(name).append(": ").append(value).append("\r\n");
}

bool hasField(const HttpResponse& response, std::string_view name) {
  return std::ranges::any_of(response.headers, [name](const auto& field) {
    return boost::beast::iequals(field.first, name);
  });
}

} // namespace

ResponseMessage responseMessage(HttpResponse response, unsigned version, bool isHead, bool isLast) {
  constexpr unsigned kOneDotZero = 10;
  constexpr std::string_view kPolicy = "Content-Security-Policy";
  constexpr std::string_view kCaching = "Cache-Control";
  constexpr std::size_t kUsualHead = 768;
  const bool isOld = version <= kOneDotZero;
  ResponseMessage message;
  std::string& head = message.head;
  head.reserve(kUsualHead);
  head.append(isOld ? "HTTP/1.0 " : "HTTP/1.1 ").append(std::to_string(response.status));
  head.append(" ").append(http::obsolete_reason(http::int_to_status(response.status)));
  head.append("\r\n");
  for (const auto& [name, value] : response.headers) {
    appendField(head, name, value);
  }
  // An answer may have a policy of its own, and a word on how long it may be kept.
  if (!hasField(response, kPolicy)) {
    appendField(head, kPolicy, kContentPolicy);
  }
  appendField(head, "X-Content-Type-Options", "nosniff");
  appendField(head, "Referrer-Policy", "no-referrer");
  appendField(head, "Cross-Origin-Resource-Policy", "same-origin");
  if (!hasField(response, kCaching)) {
    appendField(head, kCaching, "no-store");
  }
  // Each version has its own way that goes without saying.
  if (isLast != isOld) {
    appendField(head, "Connection", isLast ? "close" : "keep-alive");
  }
  const bool hasBody = response.status != 204 && response.status != 304;
  if (hasBody) {
    appendField(head, "Content-Type", response.contentType);
    appendField(head, "Content-Length", std::to_string(response.body.size()));
    if (!isHead) {
      message.body = std::move(response.body);
    }
  }
  head.append("\r\n");
  return message;
}

} // namespace gk::gateway
