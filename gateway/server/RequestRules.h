#pragma once

#include "gateway/http/Http.h"

#include <boost/beast/http/message.hpp>

#include <optional>

namespace gk::gateway {

/// What a request says before its body comes. Trailers, which come behind it, change nothing of
/// that. A target in absolute form (RFC 9112, section 3.2.2) is taken apart: its authority takes
/// the place of the Host field.
HttpRequest requestHead(const boost::beast::http::request_header<>& header);

/// Looks at what tells where a request ends and whom it is meant for, by RFC 9112. Everything that
/// others on the way could read differently is refused, and the connection is to be ended with the
/// refusal; nothing when the body can be read.
std::optional<HttpResponse> refuseFraming(const boost::beast::http::request_header<>& header);

} // namespace gk::gateway
