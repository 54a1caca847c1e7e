#pragma once

#include "gateway/http/Access.h"

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// HTTP requests and responses without their transport.
namespace gk::gateway {

struct HttpRequest {
  /// "GET", "PUT", "POST" ...
  std::string method;
  /// As sent: path, and query after "?".
  std::string target;
  std::string contentType;
  std::string body;
  /// Headers that say who asks; see `Credentials`.
  std::string host;
  std::optional<std::string> origin;
  std::string authorization;
  std::string cookie;
  /// Whether the client takes compressed files.
  bool takesGzip = false;
  /// The version that the client has of a file, as sent.
  std::string ifNoneMatch;
};

struct HttpResponse {
  unsigned status = 200;
  std::string contentType = "application/json";
  std::string body;
  std::vector<std::pair<std::string, std::string>> headers;
  /// Somebody has tried a token or a ticket that is none: the answer takes its time.
  bool isGuessRefused = false;
};

/// Takes the response; called once, on any thread.
using Respond = std::function<void(HttpResponse)>;

/// A target in its parts.
struct Target {
  /// Decoded.
  std::string path;
  /// Decoded names and values, in order.
  std::vector<std::pair<std::string, std::string>> query;

  /// The first value of this name, or empty.
  std::string_view find(std::string_view name) const;
};

/// Takes a target apart; nothing for one with a broken "%XX", a NUL, or without a leading "/".
/// Any thread.
std::optional<Target> parseTarget(std::string_view text);

/// What a page of ours may do, as a Content-Security-Policy: nothing but what comes from where it
/// came from.
inline constexpr std::string_view kContentPolicy =
    "default-src 'none'; script-src 'self'; style-src 'self'; img-src 'self' data:; "
    "font-src 'self'; connect-src 'self'; frame-src 'self'; base-uri 'none'; form-action 'none'; "
    "frame-ancestors 'none'";

/// `{"error":{"message":...}}` with this status.
HttpResponse errorResponse(unsigned status, std::string_view message);

} // namespace gk::gateway
