#pragma once

#include "messages/text/FormatError.h"

#include <boost/json/value.hpp>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

/// What clients of the WebSocket protocol send: https://github.com/foxglove/ws-protocol.
namespace gk::gateway {

struct SubscribeMessage {
  /// Subscription id, chosen by the client, and channel id.
  std::vector<std::pair<std::uint32_t, std::uint64_t>> subscriptions;
};

struct UnsubscribeMessage {
  std::vector<std::uint32_t> subscriptions;
};

struct GetParametersMessage {
  /// Empty for all.
  std::vector<std::string> names;
  std::optional<std::string> id;
};

struct SetParametersMessage {
  struct Parameter {
    std::string name;
    /// Nothing where the client wants the parameter unset.
    std::optional<boost::json::value> value;
    /// "float64" where the client says so.
    std::string type;
  };
  std::vector<Parameter> parameters;
  std::optional<std::string> id;
};

struct WatchParametersMessage {
  /// Empty for all.
  std::vector<std::string> names;
  /// False ends the watch.
  bool isOn = true;
};

struct ServiceCallMessage {
  std::uint32_t service = 0;
  /// Chosen by the client; comes back with the answer.
  std::uint32_t call = 0;
  std::string encoding;
  std::string payload;
};

/// What a client wants of a run that is played.
struct PlaybackControlMessage {
  bool isPlay = false;
  float speed = 1;
  /// Nanoseconds since 1970, if it is to go there.
  std::optional<std::uint64_t> seek;
  /// Chosen by the client; comes back with the answer.
  std::string requestId;
};

using ClientMessage =
    std::variant<SubscribeMessage, UnsubscribeMessage, GetParametersMessage, SetParametersMessage,
                 WatchParametersMessage, ServiceCallMessage, PlaybackControlMessage>;

/// Most entries of one list in a message.
constexpr std::size_t kMaxListEntries = 4096;

/// Reads a text frame. Raises `FormatError` for everything that is no message of the protocol, and
/// for those of capabilities that this server does not have. Any thread.
ClientMessage parseClientText(std::string_view text);

/// Reads a binary frame; the same errors. Any thread.
ClientMessage parseClientBinary(std::string_view bytes);

} // namespace gk::gateway
