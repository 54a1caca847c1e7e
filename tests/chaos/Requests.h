#pragma once

#include "chaos/Dice.h"

#include <string>

/// What clients of every kind send, sensible and not.
namespace gk::chaos {

/// One HTTP request, which may be broken. `host`: "127.0.0.1:8090", as it stands in requests.
std::string httpRequest(Dice& dice, const std::string& host);

/// Asks for a WebSocket.
std::string upgradeRequest(const std::string& host);

/// One message over a WebSocket, which may be broken, in one frame or in several.
std::string webSocketMessage(Dice& dice);

/// A WebSocket frame of a client.
std::string frame(int opcode, std::string_view payload, bool isFinal = true);

} // namespace gk::chaos
