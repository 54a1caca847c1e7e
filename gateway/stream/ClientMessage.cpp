#include "gateway/stream/ClientMessage.h"

#include "messages/json/Json.h"
#include "messages/json/JsonText.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/json/string.hpp>

#include <bit>
#include <cmath>
#include <limits>

namespace gk::gateway {

namespace {

namespace json = boost::json;
using messages::FormatError;

const json::value& member(const json::object& object, std::string_view name) {
  const json::value* found = object.if_contains(json::string_view(name.data(), name.size()));
  if (found == nullptr) {
    throw FormatError("member " + messages::quotedText(name) + " is missing");
  }
  return *found;
}

std::string textOf(const json::value& value, std::string_view what) {
  if (!value.is_string()) {
    throw FormatError(std::string(what) + " must be a string");
  }
  return {value.get_string().data(), value.get_string().size()};
}

std::uint64_t numberOf(const json::value& value, std::string_view what, std::uint64_t limit) {
  if (!value.is_int64() || value.get_int64() < 0 ||
      static_cast<std::uint64_t>(value.get_int64()) > limit) {
    throw FormatError(std::string(what) + " must be an integer from 0 to " + std::to_string(limit));
  }
  return static_cast<std::uint64_t>(value.get_int64());
}

std::uint32_t idOf(const json::value& value, std::string_view what) {
  return static_cast<std::uint32_t>(
      numberOf(value, what, std::numeric_limits<std::uint32_t>::max()));
}

const json::array& listOf(const json::object& object, std::string_view name) {
  const json::value& value = member(object, name);
  if (!value.is_array()) {
    throw FormatError(std::string(name) + " must be an array");
  }
  if (value.get_array().size() > kMaxListEntries) {
    throw FormatError(std::string(name) + " has more than " + std::to_string(kMaxListEntries) +
                      " entries");
  }
  return value.get_array();
}

const json::object& objectOf(const json::value& value, std::string_view what) {
  if (!value.is_object()) {
    throw FormatError(std::string(what) + " must be an object");
  }
  return value.get_object();
}

std::vector<std::string> namesOf(const json::object& object) {
  std::vector<std::string> names;
  for (const json::value& name : listOf(object, "parameterNames")) {
    names.push_back(textOf(name, "a parameter's name"));
  }
  return names;
}

std::optional<std::string> requestIdOf(const json::object& object) {
  const json::value* id = object.if_contains("id");
  return id != nullptr ? std::optional(textOf(*id, "id")) : std::nullopt;
}

SubscribeMessage subscribeOf(const json::object& object) {
  SubscribeMessage message;
  // Larger numbers are not exact in JavaScript.
  constexpr std::uint64_t kMaxChannel = (std::uint64_t{1} << 53U) - 1;
  for (const json::value& entry : listOf(object, "subscriptions")) {
    const json::object& subscription = objectOf(entry, "a subscription");
    message.subscriptions.emplace_back(
        idOf(member(subscription, "id"), "id"),
        numberOf(member(subscription, "channelId"), "channelId", kMaxChannel));
  }
  return message;
}

UnsubscribeMessage unsubscribeOf(const json::object& object) {
  UnsubscribeMessage message;
  for (const json::value& id : listOf(object, "subscriptionIds")) {
    message.subscriptions.push_back(idOf(id, "a subscription's id"));
  }
  return message;
}

SetParametersMessage setParametersOf(const json::object& object) {
  SetParametersMessage message;
  message.id = requestIdOf(object);
  for (const json::value& entry : listOf(object, "parameters")) {
    const json::object& parameter = objectOf(entry, "a parameter");
    SetParametersMessage::Parameter parsed;
    parsed.name = textOf(member(parameter, "name"), "a parameter's name");
    if (const json::value* value = parameter.if_contains("value")) {
      parsed.value = *value;
    }
    if (const json::value* type = parameter.if_contains("type")) {
      parsed.type = textOf(*type, "a parameter's type");
    }
    message.parameters.push_back(std::move(parsed));
  }
  return message;
}

/// Takes numbers and texts off the front of a binary frame.
class Bytes {
public:
  explicit Bytes(std::string_view bytes) : fRest(bytes) {}

  std::uint32_t takeNumber() { return xTakeNumber<std::uint32_t>(); }
  std::uint64_t takeLongNumber() { return xTakeNumber<std::uint64_t>(); }
  std::string_view take(std::size_t count) {
    if (fRest.size() < count) {
      throw FormatError("the frame is too short");
    }
    const std::string_view taken = fRest.substr(0, count);
    fRest.remove_prefix(count);
    return taken;
  }
  std::string_view rest() const { return fRest; }

private:
  template <class Number> Number xTakeNumber() {
    const std::string_view bytes = take(sizeof(Number));
    Number number = 0;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      number |= static_cast<Number>(static_cast<unsigned char>(bytes[i])) << (8 * i);
    }
    return number;
  }

  std::string_view fRest;
};

PlaybackControlMessage playbackControlOf(Bytes& frame) {
  PlaybackControlMessage message;
  const char command = frame.take(1).front();
  if (command != 0 && command != 1) {
    throw FormatError("a playback command must be 0 or 1");
  }
  message.isPlay = command == 0;
  message.speed = std::bit_cast<float>(frame.takeNumber());
  if (!std::isfinite(message.speed)) {
    throw FormatError("a playback speed must be a number");
  }
  const bool hasSeek = frame.take(1).front() != 0;
  const std::uint64_t time = frame.takeLongNumber();
  message.seek = hasSeek ? std::optional(time) : std::nullopt;
  constexpr std::uint32_t longest = 1024;
  const std::uint32_t length = frame.takeNumber();
  if (length > longest) {
    throw FormatError("a request's id has at most 1024 bytes");
  }
  message.requestId = frame.take(length);
  return message;
}

} // namespace

ClientMessage parseClientText(std::string_view text) {
  const json::value parsed = messages::parseJson(text);
  const json::object& object = objectOf(parsed, "a message");
  const std::string op = textOf(member(object, "op"), "op");
  if (op == "subscribe") {
    return subscribeOf(object);
  }
  if (op == "unsubscribe") {
    return unsubscribeOf(object);
  }
  if (op == "getParameters") {
    return GetParametersMessage{namesOf(object), requestIdOf(object)};
  }
  if (op == "setParameters") {
    return setParametersOf(object);
  }
  if (op == "subscribeParameterUpdates") {
    return WatchParametersMessage{namesOf(object), true};
  }
  if (op == "unsubscribeParameterUpdates") {
    return WatchParametersMessage{namesOf(object), false};
  }
  throw FormatError("the operation " + messages::quotedText(op) + " is not offered");
}

ClientMessage parseClientBinary(std::string_view bytes) {
  constexpr char kServiceCall = 2;
  constexpr char kPlaybackControl = 3;
  Bytes frame(bytes);
  const char opcode = frame.take(1).front();
  if (opcode == kPlaybackControl) {
    return playbackControlOf(frame);
  }
  if (opcode != kServiceCall) {
    throw FormatError("the binary operation " + std::to_string(static_cast<unsigned char>(opcode)) +
                      " is not offered");
  }
  ServiceCallMessage message;
  message.service = frame.takeNumber();
  message.call = frame.takeNumber();
  message.encoding = frame.take(frame.takeNumber());
  message.payload = frame.rest();
  return message;
}

} // namespace gk::gateway
