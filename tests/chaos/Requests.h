#pragma once

#include "chaos/Dice.h"

#include <string>

/// What clients of every kind send, sensible and not.
namespace gk::chaos {

struct Asked {
  /// "127.0.0.1:8090", as it stands in requests.
  std::string host;
  /// Batches of several calls as well.
  bool isBatched = false;
};

/// One HTTP request, which may be broken.
std::string httpRequest(Dice& dice, const Asked& asked);

/// Asks for a WebSocket.
std::string upgradeRequest(const Asked& asked);

/// One message over a WebSocket, which may be broken, in one frame or in several.
std::string webSocketMessage(Dice& dice);

/// A WebSocket frame of a client.
std::string frame(int opcode, std::string_view payload, bool isFinal = true);

} // namespace gk::chaos
