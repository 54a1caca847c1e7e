#include "modules/battery/GKBattery.h"

#include "gk/GKBroker.h"
#include "gk/GKError.h"
#include "modules/shared/Truncate.h"
#include "modules/shared/WindowSum.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

#include <array>
#include <cstdlib>
#include <limits>

namespace GK {

namespace {

constexpr const char* kLogCategory = "motion.gkbattery";

constexpr const char* kChargeKey = "Device/SubDeviceList/Battery/Charge/Sensor/Value";
constexpr const char* kStatusKey = "Device/SubDeviceList/Battery/Charge/Sensor/Status";
constexpr const char* kCellVoltageKey = "Device/SubDeviceList/Battery/Charge/Sensor/CellVoltageMin";
constexpr const char* kCurrentKey = "Device/SubDeviceList/Battery/Current/Sensor/Value";

/// Joints whose currents are added up.
constexpr std::array kJoints = {
    "HeadPitch",  "HeadYaw",   "LShoulderPitch", "LShoulderRoll", "LElbowRoll",
    "LElbowYaw",  "LWristYaw", "LHand",          "RShoulderRoll", "RShoulderPitch",
    "RElbowRoll", "RElbowYaw", "RWristYaw",      "RHand",         "LHipYawPitch",
    "LHipRoll",   "LHipPitch", "LKneePitch",     "LAnklePitch",   "LAnkleRoll",
    "RHipRoll",   "RHipPitch", "RKneePitch",     "RAnklePitch",   "RAnkleRoll"};

/// Bits of the status.
constexpr std::int32_t kDisChargingBit = 0x20;
constexpr std::int32_t kFullChargedBit = 0x40;
constexpr std::int32_t kChargingBit = 0x80;

/// The cell voltage counts as changed from this difference on, raw units.
constexpr std::int64_t kCellVoltageStep = 2;

/// Samples in a window; the plug is decided for the first time when as many ticks have passed.
constexpr std::size_t kWindow = 50;
constexpr std::int32_t kDecisionTick = 50;

/// From this sum of the joint currents on the motors work. What is added to the sum depends on it:
/// less beside working motors. Ampere.
constexpr float kMotorsWork = 0.5F;
constexpr float kRestBesideWork = 0.83F;
constexpr float kRestAtIdle = 2.5F;

/// What the battery current weighs against the motors'.
constexpr float kBatteryWeight = 2.5F;
/// Plugged in above the one score, out below the other; in between nothing changes.
constexpr float kPluggedScore = 3.0F;
constexpr float kUnpluggedScore = 1.0F;

constexpr float kPercent = 100.0F;

/// Replaces the oldest sample. The first one ever stands for all that came before it.
void push(boost::circular_buffer<float>& window, float sample) {
  if (window.empty()) {
    window.resize(kWindow, sample);
  }
  window.push_back(sample);
}

} // namespace

const std::string GKBattery::fEventPowerPlugged = "BatteryPowerPluggedChanged";
const std::string GKBattery::fEventChargeCellVoltageMin = "BatteryChargeCellVoltageMinChanged";
const std::string GKBattery::fCharge = "BatteryChargeChanged";
const std::string GKBattery::fEventCharging = "BatteryChargingFlagChanged";
const std::string GKBattery::fEventFullCharged = "BatteryFullChargedFlagChanged";
const std::string GKBattery::fEventDisCharging = "BatteryDisChargingFlagChanged";
const std::string GKBattery::fEventBatteryLevel = "BatteryLevelChanged";

GKBattery::GKBattery(const boost::shared_ptr<GKBroker>& broker)
    : GKModule(broker, "GKBattery"), fMotorWindow(kWindow), fBatteryWindow(kWindow),
      fCurrentAccess(boost::make_shared<GKMemoryFastAccess>()) {
  setModuleDescription(
      "Deals with Battery informations.\nA event name " + fEventChargeCellVoltageMin +
      " is raised when the cell voltage Min (int) of the battery changed.\nA event name " +
      fEventCharging +
      " is raised when the flag battery is charging (bool) changed.\nA event name " +
      fEventFullCharged +
      " is raised when the flag battery is full charged (bool) changed.\nA event name " +
      fEventDisCharging +
      " is raised when the flag battery is disCharging (bool) changed.\nA event name " +
      fEventBatteryLevel + " is raised when the battery level percentage (int) changed.\n");
  xBindMethods();

  try {
    fMemoryProxy = getParentBroker()->getSpecialisedProxy<GKMemoryProxy>(GKMemory::kName);
  } catch (const GKError&) {
    zu::log::warning(kLogCategory, "GKBattery")
        << "No GKMemory. GKBattery Module will not create event ";
    fActive = false;
  }
  // Without a proxy as well: it connects as far as it gets, and complains a second time.
  xConnectToMemory();
}

void GKBattery::xBindMethods() {
  functionName("_setResistanceValue", getName(),
               "hide method to activate the event BatteryPowerPluggedChanged");
  addParam("Positive", "True activate extractor");
  addParam("Negative", "True activate extractor");
  bindMethod(&GKBattery::_setResistanceValue, this);

  functionName("getBatteryCharge", getName(), "Get the battery charge in percents");
  setReturn("charge", "the percentage of remaining power");
  bindMethod(&GKBattery::getBatteryCharge, this);
}

void GKBattery::xConnectToMemory() {
  try {
    std::vector<std::string> currentKeys;
    currentKeys.reserve(std::size(kJoints));
    for (const char* joint : kJoints) {
      currentKeys.push_back(std::string("Device/SubDeviceList/") + joint +
                            "/ElectricCurrent/Sensor/Value");
    }
    fCurrentAccess->ConnectToVariables(getParentBroker(), currentKeys, false);
    const auto placeOf = [broker = getParentBroker()](const char* key) {
      return GKMemoryFastAccess::getDataPtr(broker, key, true);
    };
    fChargeValue = GKMemoryPlace<float>(placeOf(kChargeKey));
    fStatusValue = GKMemoryPlace<std::int32_t>(placeOf(kStatusKey));
    fCellVoltageValue = GKMemoryPlace<std::int32_t>(placeOf(kCellVoltageKey));
    fBatteryCurrentValue = GKMemoryPlace<float>(placeOf(kCurrentKey));

    const std::int32_t status = fStatusValue.load();
    fDisCharging = (status & kDisChargingBit) != 0;
    fFullCharged = (status & kFullChargedBit) != 0;
    fCharging = (status & kChargingBit) != 0;
    fCellVoltageMin = fCellVoltageValue.load();

    if (!fMemoryProxy) {
      throw GKError(getName(), "xConnectToMemory", "there is no memory service");
    }
    for (const std::string& event :
         {fEventCharging, fEventFullCharged, fEventDisCharging, fEventChargeCellVoltageMin,
          fEventPowerPlugged, fEventBatteryLevel}) {
      fMemoryProxy->declareEvent(event, getName());
    }
    fMemoryProxy->raiseEvent(fEventCharging, fCharging);
    fMemoryProxy->raiseEvent(fEventFullCharged, fFullCharged);
    fMemoryProxy->raiseEvent(fEventDisCharging, fDisCharging);
    fMemoryProxy->raiseEvent(fEventChargeCellVoltageMin, fCellVoltageMin);
    fMemoryProxy->raiseEvent(fEventPowerPlugged, fPowerPlugged);
    fMemoryProxy->raiseEvent(fEventBatteryLevel, fBatteryLevel);
  } catch (const GKError&) {
    zu::log::warning(kLogCategory, "xConnectToMemory")
        << "GKBattery :Connection to GKMemory failed. GKBattery Module will not create event";
    fActive = false;
  }
}

int GKBattery::getBatteryCharge() {
  return fActive ? truncate(kPercent * fChargeValue.load()) : 0;
}

void GKBattery::_setResistanceValue(const float& positive, const float& negative) {
  zu::log::info(kLogCategory, "_setResistanceValue")
      << "resistance change " << positive << " " << negative;
}

// Hot path: allocates and looks up nothing unless something changed.
void GKBattery::updatePowerPlugged() {
  if (!fActive) {
    return;
  }
  xUpdateCharge();
  xUpdateFlags();
  xUpdateCellVoltage();
  if (fTickCount < std::numeric_limits<std::int32_t>::max()) {
    ++fTickCount;
  }
  xDecidePowerPlugged(xUpdateScore());
}

void GKBattery::xUpdateCharge() {
  const std::int32_t percent = truncate(kPercent * fChargeValue.load());
  if (percent != fChargePercent) {
    fChargePercent = percent;
    fMemoryProxy->raiseEvent(fCharge, percent);
  }
}

void GKBattery::xUpdateFlags() {
  const std::int32_t status = fStatusValue.load();
  xUpdateFlag(fCharging, (status & kChargingBit) != 0, fEventCharging);
  xUpdateFlag(fFullCharged, (status & kFullChargedBit) != 0, fEventFullCharged);
  xUpdateFlag(fDisCharging, (status & kDisChargingBit) != 0, fEventDisCharging);
}

void GKBattery::xUpdateFlag(bool& flag, bool present, const std::string& event) {
  if (flag != present) {
    flag = present;
    fMemoryProxy->raiseEvent(event, present);
  }
}

void GKBattery::xUpdateCellVoltage() {
  const std::int32_t voltage = fCellVoltageValue.load();
  if (std::abs(std::int64_t{voltage} - std::int64_t{fCellVoltageMin}) >= kCellVoltageStep) {
    fCellVoltageMin = voltage;
    fMemoryProxy->raiseEvent(fEventChargeCellVoltageMin, voltage);
  }
}

float GKBattery::xUpdateScore() {
  push(fMotorWindow, xReadMotorSample());
  push(fBatteryWindow, fBatteryCurrentValue.load());
  // The former mean is part of the sum: a mean carries a small share of its own history.
  const auto [motor, battery] = sumsOf(fMotorWindow, fBatteryWindow, {fMotorMean, fBatteryMean});
  fMotorMean = motor / static_cast<float>(kWindow);
  fBatteryMean = battery / static_cast<float>(kWindow);
  return fBatteryMean * kBatteryWeight + fMotorMean;
}

float GKBattery::xReadMotorSample() {
  fCurrentAccess->GetValues(fCurrentValues);
  float sum = 0.0F;
  for (const float current : fCurrentValues) {
    sum += current;
  }
  // NaN counts as work.
  return sum + (sum < kMotorsWork ? kRestAtIdle : kRestBesideWork);
}

void GKBattery::xDecidePowerPlugged(float score) {
  // A full battery is on the plug whatever the currents say.
  const bool high = score > kPluggedScore || fFullCharged;
  const bool low = !high && score < kUnpluggedScore;
  if (!fPlugDecided) {
    // The first decision waits for full windows and is silent.
    if (fTickCount == kDecisionTick) {
      fPowerPlugged = high;
      fPlugDecided = true;
    }
    return;
  }
  if (fPowerPlugged ? low : high) {
    fPowerPlugged = high;
    fMemoryProxy->raiseEvent(fEventPowerPlugged, fPowerPlugged);
  }
}

} // namespace GK
