#include "devices/sim/World.h"

#include "devices/sim/Cells.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/Numbers.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace gk::devices {

namespace {

using Type = GK::GKValue::Type;

std::string textOf(float number) {
  std::string text;
  messages::appendFloat(text, number);
  return text;
}

std::string refuseType(const messages::DeviceKey& key, const GK::GKValue& value) {
  const bool fits = key.type == messages::KeyType::Bool   ? value.type() == Type::Bool
                    : key.type == messages::KeyType::Text ? value.type() == Type::String
                                                          : isNumber(value);
  return fits ? std::string()
              : key.name + " takes a " + std::string(messages::typeName(key.type)) +
                    ", not a value of type " + value.typeName();
}

std::string refuseRange(const messages::DeviceKey& key, const GK::GKValue& value) {
  if (!key.range || !isNumber(value)) {
    return {};
  }
  const float number = value.toFloat();
  if (!std::isfinite(number)) {
    return key.name + " takes a finite number";
  }
  if (number >= key.range->least && number <= key.range->most) {
    return {};
  }
  return key.name + " takes " + textOf(key.range->least) + " to " + textOf(key.range->most) +
         (key.unit.empty() ? "" : " ") + std::string(key.unit) + ", not " + textOf(number);
}

std::string refusePosture(const messages::DeviceKey& key, const GK::GKValue& value) {
  if (key.type != messages::KeyType::Text || findPosture(value.toString()) != nullptr) {
    return {};
  }
  std::string names;
  for (const Posture& posture : postures()) {
    names += (names.empty() ? "" : ", ") + std::string(posture.name);
  }
  return key.name + ": there is no posture \"" + value.toString() + "\", only " + names;
}

} // namespace

World::World(std::shared_ptr<GK::GKMemoryStore> store)
    : fStore(std::move(store)),
      fTouches(std::make_unique<bool[]>(messages::touchSensors().size())) {
  fQuantities = {{messages::kHoistHeightKey, &fHoistHeight},
                 {messages::kPushXKey, &fPush[0]},
                 {messages::kPushYKey, &fPush[1]},
                 {messages::kLeftObstacleKey, &fObstacles[0]},
                 {messages::kRightObstacleKey, &fObstacles[1]},
                 {messages::kAmbientKey, &fAmbient}};
  fSwitches = {{messages::kHoistHoldKey, &fIsHeld}, {messages::kChargerKey, &fIsPlugged}};
  for (std::size_t i = 0; i < messages::touchSensors().size(); ++i) {
    fSwitches.push_back({messages::touchKey(messages::touchSensors()[i]), &fTouches[i]});
  }
}

std::string World::admit(const std::string& name, const GK::GKValue& value) {
  const messages::DeviceKey* key = messages::findDeviceKey(name);
  if (key == nullptr) {
    return "the simulated robot has no key " + name;
  }
  if (key->server != messages::Server::World) {
    return name + " is written by the simulated robot itself";
  }
  for (const auto refuse : {refuseType, refuseRange, refusePosture}) {
    if (std::string reason = refuse(*key, value); !reason.empty()) {
      return reason;
    }
  }
  if (name == messages::kPostureKey) {
    fOrder.store(findPosture(value.toString()), std::memory_order_relaxed);
  }
  return {};
}

void World::bind() {
  for (Quantity& quantity : fQuantities) {
    quantity.cell = fStore->find(quantity.key);
  }
  for (Switch& one : fSwitches) {
    one.cell = fStore->find(one.key);
  }
  read();
}

void World::read() {
  for (const Quantity& quantity : fQuantities) {
    *quantity.value = numberIn(quantity.cell, *quantity.value);
  }
  for (const Switch& one : fSwitches) {
    const GK::GKValue value = one.cell != nullptr ? one.cell->load() : GK::GKValue();
    if (value.type() == Type::Bool) {
      *one.value = value.toBool();
    }
  }
}

const Posture* World::takeOrder() {
  return fOrder.exchange(nullptr, std::memory_order_relaxed);
}

double World::obstacle(Side side) const noexcept {
  const double distance = fObstacles[static_cast<std::size_t>(side)];
  return distance < messages::kNoEcho ? distance : std::numeric_limits<double>::infinity();
}

} // namespace gk::devices
