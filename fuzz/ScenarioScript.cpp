#include "fuzz/ScenarioScript.h"

#include "formats/lines/OperationNames.h"
#include "messages/json/JsonText.h"
#include "messages/json/JsonValue.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/Numbers.h"

#include <array>
#include <bit>
#include <string_view>
#include <vector>

namespace gk::fuzz {

namespace {

using GK::GKValue;

constexpr GK::GKMicros kLongest = 30'000'000;
constexpr std::size_t kMostLines = 400;

/// What takes names of subscribers and numbers: with few names and odd numbers they meet.
struct Call {
  std::string_view method;
  std::string_view params; ///< s: a name, i: an int, f: a float
};

constexpr std::array kModules = {"GKSensors", "GKSonar", "GKFsr", "GKRobotPose", "GKBattery"};
constexpr std::array<Call, 16> kCalls = {{{"subscribe", "s"},
                                          {"subscribe", "sif"},
                                          {"unsubscribe", "s"},
                                          {"updatePeriod", "si"},
                                          {"updatePrecision", "sf"},
                                          {"getCurrentPeriod", ""},
                                          {"getCurrentPrecision", ""},
                                          {"getMyPeriod", "s"},
                                          {"getMyPrecision", "s"},
                                          {"getSubscribersInfo", ""},
                                          {"getOutputNames", ""},
                                          {"_getFilteredValues", ""},
                                          {"getActualPoseAndTime", ""},
                                          {"getPoseNames", ""},
                                          {"getBatteryCharge", ""},
                                          {"_setResistanceValue", "f"}}};
constexpr std::array kNames = {"a", "b", "sensors", ""};
constexpr std::array kFaultKeys = {"FrontTactilTouched",
                                   "robotPoseChanged",
                                   "footContact",
                                   "robotPose",
                                   "BatteryLevelChanged",
                                   "GKMemory",
                                   "DCM",
                                   "GKResourceManager",
                                   "GKSensors"};

/// Gives out bytes, then zeros.
class Bytes {
public:
  explicit Bytes(std::span<const std::uint8_t> bytes) : fBytes(bytes) {}

  bool isEmpty() const { return fBytes.empty(); }

  std::uint8_t next() {
    if (fBytes.empty()) {
      return 0;
    }
    const std::uint8_t byte = fBytes.front();
    fBytes = fBytes.subspan(1);
    return byte;
  }

  std::uint32_t nextWord() {
    std::uint32_t word = 0;
    for (int i = 0; i < 4; ++i) {
      word = word << 8U | next();
    }
    return word;
  }

  template <class List> const auto& choose(const List& list) { return list[next() % list.size()]; }

private:
  std::span<const std::uint8_t> fBytes;
};

GKValue nextFloat(Bytes& bytes) {
  switch (bytes.next() % 8) {
  case 0:
    return 0.0F;
  case 1:
    return 1.0F;
  case 2: // hundredths: distances, weights, charges
    return static_cast<float>(bytes.next()) / 100.0F;
  case 3: // angles, currents
    return static_cast<float>(static_cast<std::int8_t>(bytes.next())) / 32.0F;
  case 4: // anything, NaN and infinity included
    return std::bit_cast<float>(bytes.nextWord());
  default:
    return static_cast<float>(bytes.next() % 4);
  }
}

GKValue nextInt(Bytes& bytes) {
  const std::uint8_t kind = bytes.next();
  return kind % 4 == 0 ? std::bit_cast<std::int32_t>(bytes.nextWord())
                       : static_cast<std::int32_t>(kind);
}

/// {"set": {KEY: VALUE}}
std::string nextSet(Bytes& bytes) {
  const auto& keys = messages::deviceKeys();
  const messages::DeviceKey& key = bytes.choose(keys);
  std::string text = "\"set\":{";
  messages::appendJsonString(text, key.name);
  text += ':';
  messages::appendJson(text,
                       key.type == messages::KeyType::Int ? nextInt(bytes) : nextFloat(bytes));
  return text + '}';
}

/// "call": ..., "args": [...]
std::string nextCall(Bytes& bytes) {
  const std::string module = bytes.choose(kModules);
  const Call& call = bytes.choose(kCalls);
  GKValue::Array args;
  for (const char param : call.params) {
    switch (param) {
    case 's':
      args.emplace_back(bytes.choose(kNames));
      break;
    case 'i':
      args.push_back(nextInt(bytes));
      break;
    default:
      args.push_back(nextFloat(bytes));
    }
  }
  std::string text = "\"call\":\"" + module + "." + std::string(call.method) + "\",\"args\":";
  messages::appendJson(text, GKValue(std::move(args)));
  return text;
}

std::string nextFault(Bytes& bytes) {
  constexpr unsigned int kOperations =
      static_cast<unsigned int>(GK::GKOperation::EnableStateResource) + 1;
  const auto operation = static_cast<GK::GKOperation>(bytes.next() % kOperations);
  std::string text =
      "\"fail\":{\"operation\":\"" + std::string(formats::operationName(operation)) + "\"";
  if (formats::operationHasKey(operation) && bytes.next() % 2 == 0) {
    text += std::string(",\"key\":\"") + bytes.choose(kFaultKeys) + "\"";
  }
  return text + ",\"after\":" + std::to_string(bytes.next() % 8) +
         ",\"count\":" + std::to_string(bytes.next() % 4 - 1) + "}";
}

} // namespace

ScenarioScript writeScenario(std::span<const std::uint8_t> data) {
  Bytes bytes(data);
  ScenarioScript script;
  GK::GKMicros time = 0;
  for (std::size_t lines = 0; lines < kMostLines && !bytes.isEmpty();) {
    const std::uint8_t kind = bytes.next() % 16;
    if (kind < 4) { // a tick, some ticks, a while, a moment between two ticks
      constexpr std::array<GK::GKMicros, 4> kSteps = {20'000, 60'000, 500'000, 7'000};
      time = std::min(time + kSteps[kind] * (1 + bytes.next() % 8), kLongest);
      continue;
    }
    std::string action;
    if (kind < 11) {
      action = nextSet(bytes);
    } else if (kind < 14) {
      action = nextCall(bytes);
    } else if (kind == 14) {
      action = std::string("\"getOutput\":\"") + bytes.choose(kModules) + "\"";
    } else {
      action = nextFault(bytes);
      script.hasFaults = true;
    }
    script.text += "{\"t\":";
    messages::appendSeconds(script.text, time);
    script.text += "," + action + "}\n";
    ++lines;
  }
  return script;
}

} // namespace gk::fuzz
