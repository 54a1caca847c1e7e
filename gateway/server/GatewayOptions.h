#pragma once

#include "gateway/figures/RecordingFigures.h"
#include "gateway/figures/RunSource.h"
#include "gateway/http/Access.h"
#include "gateway/past/Past.h"
#include "gateway/past/Playback.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace gk::gateway {

/// How much the gateway puts up with.
struct GatewayLimits {
  /// Bytes of a request's headers, of its body, and of a WebSocket message.
  std::uint32_t header = 8192;
  std::size_t body = 1U << 20U;
  std::size_t message = 1U << 20U;
  /// Bytes of all large answers that are being taken.
  std::size_t largeAnswers = 64U << 20U;
  std::size_t connections = 512;
  std::size_t webSocketClients = 256;
  /// Calls of all clients that have not returned, and those of one WebSocket client.
  std::size_t calls = 128;
  std::size_t callsPerClient = 32;
  /// Bytes of a name that a client watches, and of an answer to one request.
  std::size_t name = 256;
  std::size_t answer = 16U << 20U;
  /// Bytes and events that wait for one WebSocket client.
  std::size_t clientBytes = 4U << 20U;
  std::size_t clientEvents = 4096;
  /// Until the headers are there, from the end of the request before on.
  std::chrono::milliseconds headerTime{15'000};
  /// Until the body is there, and until a response has been taken.
  std::chrono::milliseconds bodyTime{30'000};
  /// Before somebody is told that this is not the token.
  std::chrono::milliseconds guessTime{1'000};
  /// A WebSocket client that takes nothing for so long is given up.
  std::chrono::milliseconds stallTime{10'000};
};

struct GatewayOptions {
  AccessOptions access;
  GatewayLimits limits;
  std::string version;
  /// Must stay valid as long as the gateway.
  RecordingSource recording;
  PastOptions past;
  /// What is played in the place of a robot; null for a robot.
  std::shared_ptr<Playback> playback;
  /// Where a run comes from; null where nobody says.
  std::shared_ptr<const RunSource> source;
  /// The clock by which clients are given up.
  std::function<std::chrono::steady_clock::time_point()> now = &std::chrono::steady_clock::now;
};

} // namespace gk::gateway
