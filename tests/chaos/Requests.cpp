#include "chaos/Requests.h"

#include <initializer_list>

namespace gk::chaos {

namespace {

constexpr std::string_view kKeys[] = {"Device/SubDeviceList/Head/Touch/Front/Sensor/Value",
                                      "Device/SubDeviceList/US/Left/Sensor/Value",
                                      "Device/SubDeviceList/Battery/Charge/Sensor/Value",
                                      "Motion/IsStand",
                                      "Simulation/Posture",
                                      "Simulation/Push/X",
                                      "Simulation/Touch/Head/Touch/Rear",
                                      "Simulation/None",
                                      "RobotConfig/Body/Version",
                                      "Chaos/A",
                                      "Chaos/B",
                                      "Chaos/C",
                                      "Chaos/\xE2\x80\xAE\x1b[2J",
                                      "nothing of the kind",
                                      ""};

constexpr std::string_view kEvents[] = {"ChaosRaised", "robotPoseChanged", "FrontTactilTouched",
                                        "Chaos/A",     "Chaos\nForged",    "SonarLeftDetected"};

constexpr std::string_view kValues[] = {"1",
                                        "1.5",
                                        "-3",
                                        "true",
                                        "\"Sit\"",
                                        "\"text\"",
                                        "null",
                                        "[1,[2.5,\"x\"],null]",
                                        R"({"float":"nan"})",
                                        R"({"float":"inf"})",
                                        "1e39",
                                        "99999999999",
                                        "{}",
                                        "{\"a\":"};

constexpr std::string_view kTargets[] = {"/api/v1/modules",
                                         "/api/v1/modules/GKSonar",
                                         "/api/v1/modules/None",
                                         "/api/v1/memory?limit=10000",
                                         "/api/v1/memory?prefix=Device&limit=50&after=M",
                                         "/api/v1/memory?limit=x",
                                         "/api/v1/events",
                                         "/api/v1/host",
                                         "/openapi.json",
                                         "/metrics",
                                         "/livez",
                                         "/readyz?verbose",
                                         "/status/GKSensors",
                                         "/status/GKMemory",
                                         "/",
                                         "/index.html",
                                         "/../etc/passwd",
                                         "/%00",
                                         "/%zz",
                                         "*"};

std::string quoted(std::string_view text) {
  constexpr std::string_view hex = "0123456789abcdef";
  std::string json = "\"";
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20) {
      json += "\\u00";
      json += hex[byte >> 4U];
      json += hex[byte & 0xFU];
    } else {
      json += (c == '"' || c == '\\') ? std::string("\\") + c : std::string(1, c);
    }
  }
  return json + "\"";
}

std::string name(Dice& dice, std::string_view known) {
  return dice.oneIn(30) ? quoted(std::string(1 + dice.below(2000), 'n')) : quoted(known);
}

std::string value(Dice& dice) {
  if (dice.oneIn(25)) {
    return quoted(std::string(dice.below(100'000), 'v'));
  }
  return std::string(dice.pick(kValues));
}

std::string list(std::initializer_list<std::string> elements) {
  std::string text;
  for (const std::string& element : elements) {
    text += (text.empty() ? "[" : ",") + element;
  }
  return text + "]";
}

/// A method and its parameters, mostly sensible ones.
struct Call {
  std::string method;
  std::string params;
};
Call call(Dice& dice) {
  const std::string key = name(dice, dice.pick(kKeys));
  const std::string event = name(dice, dice.pick(kEvents));
  constexpr std::string_view modules[] = {"GKSonar", "GKFsr", "GKRobotPose", "GKBattery"};
  const std::string module(dice.pick(modules));
  switch (dice.below(16)) {
  case 0:
    return {"GKMemory.insertData", list({key, value(dice)})};
  case 1:
    return {"GKMemory.raiseEvent", list({event, value(dice)})};
  case 2:
    return {"GKMemory.raiseMicroEvent", list({event, value(dice)})};
  case 3:
    return {"GKMemory.getData", list({key})};
  case 4:
    return {"GKMemory.getDataList", list({quoted(dice.oneIn(2) ? "" : "Touch")})};
  case 5:
    return {"GKMemory.declareEvent", list({event, quoted(module)})};
  case 6:
    return {"GKMemory.subscribeToEvent",
            list({event, quoted(dice.oneIn(2) ? "GKMemory" : module), quoted("raiseEvent")})};
  case 7:
    return {"GKMemory.unsubscribeToEvent", list({event, quoted("GKMemory")})};
  case 8:
    return {module + ".subscribe", list({quoted("chaos" + std::to_string(dice.below(8)))})};
  case 9:
    return {module + ".unsubscribe", list({quoted("chaos" + std::to_string(dice.below(8)))})};
  case 10:
    return {module + ".getCurrentPeriod", "[]"};
  case 11:
    return {"GKResourceManager.enableStateResource", list({event, "true"})};
  case 12:
    return {"DCM.set", list({list({key, quoted("Merge"), "[[1.0,0]]"})})};
  case 13:
    return {"GKBattery.getBatteryCharge", "[]"};
  case 14:
    return {module + ".getSubscribersInfo", "[]"};
  default:
    return {"None.none", "{}"};
  }
}

std::string rpc(Dice& dice) {
  const Call one = call(dice);
  const std::string id = dice.oneIn(8) ? "" : "\"id\":" + std::to_string(dice.below(100)) + ",";
  return R"({"jsonrpc":"2.0",)" + id + R"("method":")" + one.method + R"(","params":)" +
         one.params + "}";
}

std::string batch(Dice& dice) {
  const std::size_t count = 1 + dice.below(70);
  std::string text;
  for (std::size_t i = 0; i < count; ++i) {
    text += (text.empty() ? "[" : ",") + rpc(dice);
  }
  return text + "]";
}

std::string escapedPath(std::string_view key) {
  std::string path = "/api/v1/memory/";
  for (const char c : key) {
    const bool isPlain = c > ' ' && c < 0x7F && c != '%' && c != '?';
    path += isPlain ? std::string(1, c) : "%20";
  }
  return path;
}

std::string request(std::string_view method, std::string_view target, const std::string& host,
                    std::string_view fields, std::string_view body) {
  std::string text = std::string(method) + " " + std::string(target) +
                     " HTTP/1.1\r\nHost: " + host + "\r\n" + std::string(fields);
  if (!body.empty()) {
    text +=
        "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
  }
  return text + "\r\n" + std::string(body);
}

/// What no sensible client sends.
std::string broken(Dice& dice, const std::string& host) {
  switch (dice.below(10)) {
  case 0:
    return dice.bytes(1 + dice.below(3000));
  case 1:
    return request("GET", "/livez", host, "Host: evil.example\r\n", "");
  case 2:
    return request("POST", "/rpc", host, "Transfer-Encoding: gzip\r\n", "") + rpc(dice);
  case 3:
    return request("POST", "/rpc", host, "Transfer-Encoding: chunked\r\n", "") + "zz\r\n\r\n";
  case 4:
    return request("POST", "/rpc", host,
                   "Content-Type: application/json\r\nTransfer-Encoding: chunked\r\n", "") +
           "2\r\n[]\r\n0\r\nHost: evil.example\r\n\r\n";
  case 5:
    return request("GET", "/", host, "X: " + std::string(10'000, 'x') + "\r\n", "");
  case 6:
    return request("GET", "http://" + host + "/livez", host, "", "");
  case 7:
    return "GET / HTTP/3.7\r\n\r\n";
  case 8:
    return request("POST", "/login", host, "", R"({"token":"wrong"})");
  default:
    return request("PUT", "/api/v1/memory/Chaos/A", host, "Expect: 100-continue\r\n", "1");
  }
}

std::string number(std::uint32_t bits) {
  std::string bytes;
  for (unsigned shift = 0; shift < 32; shift += 8) {
    bytes += static_cast<char>((bits >> shift) & 0xFFU);
  }
  return bytes;
}

std::string subscribe(Dice& dice) {
  std::string text = R"({"op":"subscribe","subscriptions":[)";
  for (std::size_t i = 0; i < 1 + dice.below(30); ++i) {
    text += (i > 0 ? "," : "") + std::string("{\"id\":") + std::to_string(dice.below(60)) +
            ",\"channelId\":" + std::to_string(dice.below(60)) + "}";
  }
  return text + "]}";
}

std::string names(Dice& dice) {
  std::string text;
  for (std::size_t i = dice.below(20); i > 0; --i) {
    text += (text.empty() ? "" : ",") + name(dice, dice.pick(kKeys));
  }
  return "[" + text + "]";
}

std::string text(Dice& dice) {
  switch (dice.below(9)) {
  case 0:
    return subscribe(dice);
  case 1:
    return R"({"op":"unsubscribe","subscriptionIds":[1,2,)" + std::to_string(dice.below(60)) + "]}";
  case 2:
    return R"({"op":"getParameters","parameterNames":)" + names(dice) + R"(,"id":"x"})";
  case 3:
    return R"({"op":"setParameters","parameters":[{"name":)" + name(dice, dice.pick(kKeys)) +
           R"(,"value":)" + value(dice) + R"(,"type":"float64"}],"id":"s"})";
  case 4:
    return R"({"op":"subscribeParameterUpdates","parameterNames":)" + names(dice) + "}";
  case 5:
    return R"({"op":"unsubscribeParameterUpdates","parameterNames":)" + names(dice) + "}";
  case 6:
    return R"({"op":"subscribeConnectionGraph"})";
  case 7:
    return R"({"op":)" + value(dice) + "}";
  default:
    return dice.bytes(dice.below(300));
  }
}

} // namespace

std::string frame(int opcode, std::string_view payload, bool isFinal) {
  std::string bytes(1, static_cast<char>((isFinal ? 0x80 : 0) | opcode));
  if (payload.size() < 126) {
    bytes += static_cast<char>(0x80 | payload.size());
  } else {
    const bool isShort = payload.size() < 65536;
    bytes += static_cast<char>(0x80 | (isShort ? 126 : 127));
    for (int shift = isShort ? 8 : 56; shift >= 0; shift -= 8) {
      bytes += static_cast<char>((payload.size() >> shift) & 0xFF);
    }
  }
  return bytes + std::string(4, '\0') + std::string(payload);
}

std::string httpRequest(Dice& dice, const std::string& host) {
  switch (dice.below(8)) {
  case 0:
  case 1:
    return request("GET", dice.pick(kTargets), host, "", "");
  case 2:
    return request("GET", escapedPath(dice.pick(kKeys)), host, "", "");
  case 3:
    return request("PUT", escapedPath(dice.pick(kKeys)), host, "", value(dice));
  case 4:
  case 5:
    return request("POST", "/rpc", host, "", rpc(dice));
  case 6:
    return request("POST", "/rpc", host, "", batch(dice));
  default:
    return broken(dice, host);
  }
}

std::string upgradeRequest(const std::string& host) {
  return request("GET", "/ws", host,
                 "Connection: Upgrade\r\nUpgrade: websocket\r\nSec-WebSocket-Version: 13\r\n"
                 "Sec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n"
                 "Sec-WebSocket-Protocol: foxglove.sdk.v1\r\n",
                 "");
}

std::string webSocketMessage(Dice& dice) {
  switch (dice.below(12)) {
  case 0: {
    const auto service = static_cast<std::uint32_t>(dice.below(120));
    const std::string params = dice.oneIn(2) ? call(dice).params : "{}";
    return frame(2, "\x02" + number(service) + number(7) + number(4) + "json" + params);
  }
  case 1:
    return frame(2, dice.bytes(dice.below(40)));
  case 2:
    return frame(9, dice.bytes(dice.below(125)));
  case 3: {
    const std::string whole = text(dice);
    const std::size_t cut = whole.empty() ? 0 : dice.below(whole.size());
    return frame(1, std::string_view(whole).substr(0, cut), false) +
           frame(0, std::string_view(whole).substr(cut));
  }
  case 4:
    return dice.oneIn(6) ? frame(8, "\x03\xe8") : frame(1, subscribe(dice));
  case 5:
    return dice.oneIn(10) ? dice.bytes(20) : frame(1, text(dice));
  default:
    return frame(1, text(dice));
  }
}

} // namespace gk::chaos
