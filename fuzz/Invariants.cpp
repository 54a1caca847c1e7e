#include "fuzz/Invariants.h"

#include "fuzz/Require.h"
#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKMemory.h"

#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <array>
#include <cmath>
#include <optional>
#include <string_view>

namespace gk::fuzz {

namespace {

/// Raised only with another value than the time before.
constexpr std::array<std::string_view, 20> kOnChange = {"ChestButtonPressed",
                                                        "FrontTactilTouched",
                                                        "MiddleTactilTouched",
                                                        "RearTactilTouched",
                                                        "HandRightBackTouched",
                                                        "HandRightLeftTouched",
                                                        "HandRightRightTouched",
                                                        "HandLeftBackTouched",
                                                        "HandLeftLeftTouched",
                                                        "HandLeftRightTouched",
                                                        "LeftBumperPressed",
                                                        "RightBumperPressed",
                                                        "BodyStiffnessChanged",
                                                        "footContactChanged",
                                                        "robotPoseChanged",
                                                        "BatteryChargeChanged",
                                                        "BatteryChargingFlagChanged",
                                                        "BatteryFullChargedFlagChanged",
                                                        "BatteryDisChargingFlagChanged",
                                                        "BatteryPowerPluggedChanged"};
constexpr std::array kContacts = {"footContact", "leftFootContact", "rightFootContact"};
constexpr float kHighestPose = 10.0F;

/// A NaN differs from everything, itself included.
bool isNan(const GK::GKValue& value) {
  return value.type() == GK::GKValue::Type::Float && std::isnan(value.toFloat());
}

} // namespace

void Invariants::onNotice(const GK::GKNotice& notice) {
  xCheckTime(notice.time);
  if (notice.kind == GK::GKNotice::Kind::Event || notice.kind == GK::GKNotice::Kind::MicroEvent) {
    xCheckChange(notice.name, notice.value);
  }
}

void Invariants::onTick(GK::GKMicros time, const GK::GKTask&) {
  xCheckTime(time);
  const auto memory = boost::dynamic_pointer_cast<GK::GKMemory>(
      GK::GKBrokerManager::getInstance()->getRandomBroker()->findModule(GK::GKMemory::kName));
  for (const char* key : kContacts) {
    if (const std::optional<GK::GKValue> contact = memory->store()->get(key)) {
      require(*contact == GK::GKValue(0.0F) || *contact == GK::GKValue(1.0F),
              "a contact is 0.0 or 1.0");
    }
  }
  if (const std::optional<GK::GKValue> pose = memory->store()->get("robotPose")) {
    const float code = pose->toFloat();
    require(code >= 0.0F && code <= kHighestPose && code == std::floor(code),
            "a pose code is one of the table");
  }
}

void Invariants::xCheckTime(GK::GKMicros time) {
  require(time >= fLast, "times never go back");
  fLast = time;
}

void Invariants::xCheckChange(const std::string& event, const GK::GKValue& value) {
  if (fHasFaults || std::find(kOnChange.begin(), kOnChange.end(), event) == kOnChange.end() ||
      isNan(value)) {
    return;
  }
  const auto [known, isNew] = fRaised.try_emplace(event, value);
  require(isNew || known->second != value, "an event tells of a change");
  known->second = value;
}

} // namespace gk::fuzz
