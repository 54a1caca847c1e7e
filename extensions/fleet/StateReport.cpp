#include "extensions/fleet/StateReport.h"

#include "messages/keys/DeviceKeys.h"

#include <algorithm>
#include <cmath>
#include <string_view>

namespace gk::fleet {

namespace {

using GK::GKValue;

constexpr std::chrono::seconds kLeastPause{1};
constexpr std::chrono::seconds kMostPause{30};

constexpr std::string_view kPoseKey = "robotPoseChanged";
constexpr std::string_view kFloorKey = "footContactChanged";
constexpr std::string_view kContactKey = "footContact";
constexpr std::string_view kStiffnessKey = "BodyStiffnessChanged";
constexpr std::string_view kPluggedKey = "BatteryPowerPluggedChanged";
constexpr std::string_view kChargeKey = "Device/SubDeviceList/Battery/Charge/Sensor/Value";
constexpr std::string_view kTemperature = "/Temperature/Sensor/Value";

std::optional<double> numberIn(const GK::GKMemoryStore& store, std::string_view key) {
  const std::optional<GKValue> value = store.get(key);
  if (!value) {
    return std::nullopt;
  }
  if (value->type() == GKValue::Type::Int) {
    return static_cast<double>(value->toInt());
  }
  const bool isFloat = value->type() == GKValue::Type::Float && std::isfinite(value->toFloat());
  return isFloat ? std::optional(static_cast<double>(value->toFloat())) : std::nullopt;
}

std::optional<bool> boolIn(const GK::GKMemoryStore& store, std::string_view key) {
  const std::optional<GKValue> value = store.get(key);
  return value && value->type() == GKValue::Type::Bool ? std::optional(value->toBool())
                                                       : std::nullopt;
}

std::optional<std::string> textIn(const GK::GKMemoryStore& store, std::string_view key) {
  const std::optional<GKValue> value = store.get(key);
  return value && value->type() == GKValue::Type::String ? std::optional(value->toString())
                                                         : std::nullopt;
}

/// As the event has it: 0, 1 and 2; anything else is not known.
std::optional<std::string> stiffnessIn(const GK::GKMemoryStore& store) {
  const double value = numberIn(store, kStiffnessKey).value_or(-1);
  return value == 0   ? std::optional<std::string>("off")
         : value == 1 ? std::optional<std::string>("partial")
         : value == 2 ? std::optional<std::string>("on")
                      : std::nullopt;
}

std::optional<messages::FleetState::Joint> hottestIn(const GK::GKMemoryStore& store) {
  std::optional<messages::FleetState::Joint> hottest;
  for (const std::string_view joint : messages::jointNames()) {
    const auto temperature = numberIn(store, messages::deviceKey(joint, kTemperature));
    if (temperature && (!hottest || *temperature > hottest->temperature)) {
      hottest = {std::string(joint), *temperature};
    }
  }
  return hottest;
}

} // namespace

void StateReport::look(Time now, const GK::GKMemoryStore& store) {
  if (!fLoopsSince) {
    fLoopsSince = now;
  }
  fState.pose = textIn(store, kPoseKey);
  fState.isOnFloor = boolIn(store, kFloorKey);
  if (const auto contact = numberIn(store, kContactKey); !fState.isOnFloor && contact) {
    fState.isOnFloor = *contact > 0; // it has not changed yet
  }
  fState.charge = numberIn(store, kChargeKey);
  fState.isPlugged = boolIn(store, kPluggedKey);
  fState.stiffness = stiffnessIn(store);
  fState.hottest = hottestIn(store);
}

std::string StateReport::xGist(const messages::FleetState& state) {
  constexpr double kPercent = 100;
  messages::FleetState gist = state;
  // A hundredth of the charge and a degree are news; what is between them is not. Nor are figures
  // of the loops, and how much exactly waits.
  if (gist.charge) {
    gist.charge = std::round(*gist.charge * kPercent);
  }
  if (gist.hottest) {
    gist.hottest = {std::string(), std::round(gist.hottest->temperature)};
  }
  gist.loops.clear();
  gist.outbox.backlog = gist.outbox.backlog > 0 ? 1 : 0;
  gist.outbox.bytes = 0;
  gist.outbox.oldest.reset();
  return messages::statePayload(gist);
}

bool StateReport::isDue(Time now, const messages::FleetState::Outbox& outbox) const {
  if (!fTold) {
    return true;
  }
  if (now < fTime + kLeastPause) {
    return false;
  }
  messages::FleetState state = fState;
  state.outbox = outbox;
  return now >= fTime + kMostPause || xGist(state) != *fTold;
}

StateReport::Time StateReport::nextDue() const {
  return fTold ? fTime + kLeastPause : Time();
}

messages::FleetState StateReport::take(Time now, const std::vector<EventQueue::Loop>& loops,
                                       const messages::FleetState::Outbox& outbox) {
  constexpr double kMicrosPerSecond = 1e6;
  const double seconds = std::chrono::duration<double>(now - fLoopsSince.value_or(now)).count();
  messages::FleetState state = fState;
  state.outbox = outbox;
  for (const EventQueue::Loop& loop : loops) {
    state.loops.push_back({loop.module, loop.ticks,
                           seconds > 0 ? static_cast<double>(loop.ticks) / seconds : 0,
                           static_cast<double>(loop.lateness) / kMicrosPerSecond,
                           static_cast<double>(loop.work) / kMicrosPerSecond, loop.overruns});
  }
  fTold = xGist(state);
  fTime = now;
  fLoopsSince = now;
  return state;
}

} // namespace gk::fleet
