#include "gateway/server/ResponseMessage.h"

#include <boost/beast/http/field.hpp>
#include <boost/beast/http/status.hpp>

#include <utility>

namespace gk::gateway {

namespace http = boost::beast::http;

http::response<http::string_body> responseMessage(HttpResponse response, unsigned version,
                                                  bool isHead, bool isLast) {
  http::response<http::string_body> message(static_cast<http::status>(response.status), version);
  for (const auto& [name, value] : response.headers) {
    message.insert(name, value);
  }
  // An answer may have a policy of its own, and a word on how long it may be kept.
  if (message.find("Content-Security-Policy") == message.end()) {
    message.set("Content-Security-Policy", kContentPolicy);
  }
  message.set("X-Content-Type-Options", "nosniff");
  message.set("Referrer-Policy", "no-referrer");
  message.set("Cross-Origin-Resource-Policy", "same-origin");
  if (message.find(http::field::cache_control) == message.end()) {
    message.set(http::field::cache_control, "no-store");
  }
  message.keep_alive(!isLast);
  const bool hasBody = response.status != 204 && response.status != 304;
  if (hasBody) {
    message.set(http::field::content_type, response.contentType);
    message.content_length(response.body.size());
    if (!isHead) {
      message.body() = std::move(response.body);
    }
  }
  return message;
}

} // namespace gk::gateway
