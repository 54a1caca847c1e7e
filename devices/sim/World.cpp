#include "devices/sim/World.h"

#include "devices/DeviceKeys.h"
#include "devices/sim/Cells.h"
#include "formats/text/Numbers.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <utility>

namespace gk::devices {

namespace {

using Type = GK::GKValue::Type;

std::string textOf(float number) {
  std::string text;
  formats::appendFloat(text, number);
  return text;
}

std::string refuseType(const DeviceKey& key, const GK::GKValue& value) {
  const bool fits = key.type == KeyType::Bool   ? value.type() == Type::Bool
                    : key.type == KeyType::Text ? value.type() == Type::String
                                                : isNumber(value);
  return fits ? std::string()
              : key.name + " takes a " + std::string(typeName(key.type)) +
                    ", not a value of type " + value.typeName();
}

std::string refuseRange(const DeviceKey& key, const GK::GKValue& value) {
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

std::string refusePosture(const DeviceKey& key, const GK::GKValue& value) {
  if (key.type != KeyType::Text || findPosture(value.toString()) != nullptr) {
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
    : fStore(std::move(store)), fTouches(std::make_unique<bool[]>(touchSensors().size())) {
  fQuantities = {{kHoistHeightKey, &fHoistHeight},
                 {kPushXKey, &fPush[0]},
                 {kPushYKey, &fPush[1]},
                 {kLeftObstacleKey, &fObstacles[0]},
                 {kRightObstacleKey, &fObstacles[1]},
                 {kAmbientKey, &fAmbient}};
  fSwitches = {{kHoistHoldKey, &fIsHeld}, {kChargerKey, &fIsPlugged}};
  for (std::size_t i = 0; i < touchSensors().size(); ++i) {
    fSwitches.push_back({touchKey(touchSensors()[i]), &fTouches[i]});
  }
}

std::string World::admit(const std::string& name, const GK::GKValue& value) {
  const DeviceKey* key = findDeviceKey(name);
  if (key == nullptr) {
    return "the simulated robot has no key " + name;
  }
  if (key->server != Server::World) {
    return name + " is written by the simulated robot itself";
  }
  for (const auto refuse : {refuseType, refuseRange, refusePosture}) {
    if (std::string reason = refuse(*key, value); !reason.empty()) {
      return reason;
    }
  }
  if (name == kPostureKey) {
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
  return distance < kNoEcho ? distance : std::numeric_limits<double>::infinity();
}

} // namespace gk::devices
