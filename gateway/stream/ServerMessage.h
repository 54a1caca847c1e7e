#pragma once

#include "gateway/channels/Channels.h"

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

/// What the server sends over the WebSocket protocol: https://github.com/foxglove/ws-protocol. Any
/// thread.
namespace gk::gateway {

/// The subprotocols that are spoken, in the order in which they are preferred. The messages are the
/// same.
constexpr std::string_view kSubprotocols[] = {"foxglove.sdk.v1", "foxglove.websocket.v1"};

/// Picks from the names that a client offers, separated by commas; empty when there is none of
/// ours.
std::string_view chooseSubprotocol(std::string_view offered);

/// Bytes before the payload of a sample: operation, subscription, time.
constexpr std::size_t kMessageHeadSize = 13;

enum class StatusLevel : unsigned char { Info = 0, Warning = 1, Error = 2 };

/// A bound method, or all overloads of one, as a service.
struct Service {
  std::uint32_t id = 0;
  /// "Module.method".
  std::string name;
  std::string requestSchema;
  std::string responseSchema;
};

/// Nanoseconds since 1970 from the first to the last message of a run that is played.
using PlayedSpan = std::pair<std::uint64_t, std::uint64_t>;

/// `played`: nothing for a robot, which has methods to call.
std::string serverInfoMessage(std::string_view name, std::string_view version,
                              std::string_view sessionId,
                              const std::optional<PlayedSpan>& played = std::nullopt);
std::string statusMessage(StatusLevel level, std::string_view message, std::string_view id = {});
std::string removeStatusMessage(std::string_view id);
std::string advertiseMessage(std::span<const Channel* const> channels);
std::string advertiseServicesMessage(std::span<const Service> services);
std::string serviceFailureMessage(std::uint32_t service, std::uint32_t call,
                                  std::string_view reason);

/// Parameters by name. The value of a pair is JSON; empty for a name that has none.
struct ParameterText {
  std::string name;
  std::string value;
  bool isFloat = false;
};
/// `id` is empty unless it answers a request that has one.
std::string parameterValuesMessage(std::span<const ParameterText> parameters, std::string_view id);

/// The bytes before a message's payload; `time` in nanoseconds since 1970.
std::string messageHead(std::uint32_t subscription, std::uint64_t time);
std::string timeMessage(std::uint64_t time);

enum class PlaybackStatus : unsigned char { Playing = 0, Paused = 1, Buffering = 2, Ended = 3 };
std::string playbackStateMessage(PlaybackStatus status, std::uint64_t time, float speed,
                                 bool didSeek, std::string_view requestId);
std::string serviceResponseMessage(std::uint32_t service, std::uint32_t call,
                                   std::string_view payload);

} // namespace gk::gateway
