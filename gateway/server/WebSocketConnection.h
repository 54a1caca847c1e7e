#pragma once

#include "gateway/net/ByteStream.h"
#include "gateway/server/Connections.h"

#include <boost/beast/http/message.hpp>
#include <boost/beast/http/string_body.hpp>

#include <string_view>

namespace gk::gateway {

/// Goes on with a client that has asked for a WebSocket and may have one.
void startWebSocket(ServerParts& parts, ByteStream stream,
                    const boost::beast::http::request<boost::beast::http::string_body>& request,
                    std::string_view subprotocol);

} // namespace gk::gateway
