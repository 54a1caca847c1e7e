#include "gateway/stream/ServerMessage.h"

#include "messages/json/JsonWriter.h"

#include <algorithm>
#include <array>
#include <bit>

namespace gk::gateway {

namespace {

constexpr std::string_view kJson = "json";
constexpr std::string_view kJsonSchema = "jsonschema";

constexpr char kMessageData = 1;
constexpr char kTime = 2;
constexpr char kServiceResponse = 3;
constexpr char kPlaybackState = 5;

/// Little-endian, as all numbers of the protocol.
template <class Number> void appendNumber(std::string& out, Number number) {
  std::array<char, sizeof(Number)> bytes;
  for (std::size_t i = 0; i < bytes.size(); ++i) {
    bytes[i] = static_cast<char>((number >> (8 * i)) & 0xFF);
  }
  out.append(bytes.data(), bytes.size());
}

messages::JsonWriter& begin(messages::JsonWriter& json, std::string_view op) {
  return json.beginObject().key("op").text(op);
}

void appendMoment(messages::JsonWriter& json, std::uint64_t nanoseconds) {
  constexpr std::uint64_t perSecond = 1'000'000'000;
  json.beginObject().key("sec").unsignedInteger(nanoseconds / perSecond);
  json.key("nsec").unsignedInteger(nanoseconds % perSecond).endObject();
}

std::string_view trimmed(std::string_view text) {
  const std::size_t first = text.find_first_not_of(" \t");
  const std::size_t last = text.find_last_not_of(" \t");
  return first == std::string_view::npos ? std::string_view()
                                         : text.substr(first, last - first + 1);
}

} // namespace

std::string_view chooseSubprotocol(std::string_view offered) {
  for (const std::string_view ours : kSubprotocols) {
    std::string_view rest = offered;
    while (!rest.empty()) {
      const std::size_t comma = std::min(rest.find(','), rest.size());
      if (trimmed(rest.substr(0, comma)) == ours) {
        return ours;
      }
      rest.remove_prefix(std::min(comma + 1, rest.size()));
    }
  }
  return {};
}

std::string serverInfoMessage(std::string_view name, std::string_view version,
                              std::string_view sessionId, const std::optional<PlayedSpan>& played) {
  std::string text;
  messages::JsonWriter json(text);
  begin(json, "serverInfo").key("name").text(name);
  json.key("capabilities").beginArray();
  for (const char* capability :
       {"time", played ? "playbackControl" : "services", "parameters", "parametersSubscribe"}) {
    json.text(capability);
  }
  json.endArray();
  if (played) {
    appendMoment(json.key("dataStartTime"), played->first);
    appendMoment(json.key("dataEndTime"), played->second);
  } else {
    json.key("supportedEncodings").beginArray().text(kJson).endArray();
  }
  json.key("metadata").beginObject().key("version").text(version).endObject();
  json.key("sessionId").text(sessionId).endObject();
  return text;
}

std::string statusMessage(StatusLevel level, std::string_view message, std::string_view id) {
  std::string text;
  messages::JsonWriter json(text);
  begin(json, "status").key("level").integer(static_cast<int>(level)).key("message").text(message);
  if (!id.empty()) {
    json.key("id").text(id);
  }
  json.endObject();
  return text;
}

std::string removeStatusMessage(std::string_view id) {
  std::string text;
  messages::JsonWriter json(text);
  begin(json, "removeStatus").key("statusIds").beginArray().text(id).endArray().endObject();
  return text;
}

std::string advertiseMessage(std::span<const Channel* const> channels) {
  std::string text;
  messages::JsonWriter json(text);
  begin(json, "advertise").key("channels").beginArray();
  for (const Channel* channel : channels) {
    json.beginObject().key("id").unsignedInteger(channel->id).key("topic").text(channel->topic);
    json.key("encoding").text(channel->encoding).key("schemaName").text(channel->schemaName);
    json.key("schema").text(channel->schema);
    json.key("schemaEncoding").text(channel->schemaEncoding).endObject();
  }
  json.endArray().endObject();
  return text;
}

std::string advertiseServicesMessage(std::span<const Service> services) {
  std::string text;
  messages::JsonWriter json(text);
  begin(json, "advertiseServices").key("services").beginArray();
  for (const Service& service : services) {
    const auto side = [&](std::string_view name, std::string_view suffix,
                          const std::string& schema) {
      json.key(name).beginObject().key("encoding").text(kJson);
      json.key("schemaName").text(std::string(service.name).append(suffix));
      json.key("schemaEncoding").text(kJsonSchema).key("schema").text(schema).endObject();
    };
    json.beginObject().key("id").unsignedInteger(service.id).key("name").text(service.name);
    json.key("type").text(service.name);
    side("request", "_Request", service.requestSchema);
    side("response", "_Response", service.responseSchema);
    json.endObject();
  }
  json.endArray().endObject();
  return text;
}

std::string serviceFailureMessage(std::uint32_t service, std::uint32_t call,
                                  std::string_view reason) {
  std::string text;
  messages::JsonWriter json(text);
  begin(json, "serviceCallFailure").key("serviceId").unsignedInteger(service);
  json.key("callId").unsignedInteger(call).key("message").text(reason).endObject();
  return text;
}

std::string parameterValuesMessage(std::span<const ParameterText> parameters, std::string_view id) {
  std::string text;
  messages::JsonWriter json(text);
  begin(json, "parameterValues").key("parameters").beginArray();
  for (const ParameterText& parameter : parameters) {
    json.beginObject().key("name").text(parameter.name);
    if (!parameter.value.empty()) {
      json.key("value").raw(parameter.value);
    }
    if (parameter.isFloat) {
      json.key("type").text("float64");
    }
    json.endObject();
  }
  json.endArray();
  if (!id.empty()) {
    json.key("id").text(id);
  }
  json.endObject();
  return text;
}

std::string messageHead(std::uint32_t subscription, std::uint64_t time) {
  std::string bytes(1, kMessageData);
  appendNumber(bytes, subscription);
  appendNumber(bytes, time);
  return bytes;
}

std::string timeMessage(std::uint64_t time) {
  std::string bytes(1, kTime);
  appendNumber(bytes, time);
  return bytes;
}

std::string playbackStateMessage(PlaybackStatus status, std::uint64_t time, float speed,
                                 bool didSeek, std::string_view requestId) {
  std::string bytes(1, kPlaybackState);
  bytes += static_cast<char>(status);
  appendNumber(bytes, time);
  appendNumber(bytes, std::bit_cast<std::uint32_t>(speed));
  bytes += static_cast<char>(didSeek ? 1 : 0);
  appendNumber(bytes, static_cast<std::uint32_t>(requestId.size()));
  return bytes.append(requestId);
}

std::string serviceResponseMessage(std::uint32_t service, std::uint32_t call,
                                   std::string_view payload) {
  std::string bytes(1, kServiceResponse);
  appendNumber(bytes, service);
  appendNumber(bytes, call);
  appendNumber(bytes, static_cast<std::uint32_t>(kJson.size()));
  bytes += kJson;
  bytes += payload;
  return bytes;
}

} // namespace gk::gateway
