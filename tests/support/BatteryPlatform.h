#pragma once

#include "modules/battery/GKBattery.h"
#include "support/NoticeLines.h"
#include "support/TestModules.h"

#include <string>
#include <vector>

namespace GK {

/// Reaches single steps of a tick, to try their limits with exact numbers.
class GKBatteryPeer {
public:
  static float motorSample(GKBattery& battery) { return battery.xReadMotorSample(); }
  static float score(GKBattery& battery) { return battery.xUpdateScore(); }
  static float motorMean(const GKBattery& battery) { return battery.fMotorMean; }
  static void setMotorMean(GKBattery& battery, float mean) { battery.fMotorMean = mean; }
  static float batteryMean(const GKBattery& battery) { return battery.fBatteryMean; }
  static bool isPlugged(const GKBattery& battery) { return battery.fPowerPlugged; }

  /// The first decision has been taken and was `isPlugged`.
  static void setDecided(GKBattery& battery, bool isPlugged) {
    battery.fPlugDecided = true;
    battery.fPowerPlugged = isPlugged;
  }
  static void decide(GKBattery& battery, float score) { battery.xDecidePowerPlugged(score); }
};

} // namespace GK

/// What the tests of the battery share.
namespace GK::test::battery {

using Peer = GKBatteryPeer;

inline constexpr const char* kCharge = "Device/SubDeviceList/Battery/Charge/Sensor/Value";
inline constexpr const char* kStatus = "Device/SubDeviceList/Battery/Charge/Sensor/Status";
inline constexpr const char* kCellVoltage =
    "Device/SubDeviceList/Battery/Charge/Sensor/CellVoltageMin";
inline constexpr const char* kCurrent = "Device/SubDeviceList/Battery/Current/Sensor/Value";
inline constexpr const char* kFirstJoint =
    "Device/SubDeviceList/HeadPitch/ElectricCurrent/Sensor/Value";
inline constexpr const char* kSecondJoint =
    "Device/SubDeviceList/HeadYaw/ElectricCurrent/Sensor/Value";
inline constexpr const char* kLastJoint =
    "Device/SubDeviceList/RAnkleRoll/ElectricCurrent/Sensor/Value";

inline constexpr int kDisCharging = 0x20;
inline constexpr int kFullCharged = 0x40;
inline constexpr int kCharging = 0x80;

inline constexpr const char* kNotConnectedLine =
    "warning motion.gkbattery xConnectToMemory: GKBattery :Connection to GKMemory failed. "
    "GKBattery Module will not create event";

/// Battery currents (ampere) at which, with all joints idle, the power is surely in or out.
inline constexpr float kChargeCurrent = 1.0F;
inline constexpr float kDrainCurrent = -1.0F;

/// A battery that is empty, so that a tick at rest announces nothing.
class BatteryPlatform : public TestModules {
public:
  explicit BatteryPlatform(Services services = kMemoryOnly) : TestModules(services) {
    set(kCharge, 0.0F);
  }
};

inline boost::shared_ptr<GKBattery> make(TestPlatform& platform) {
  auto sut = boost::make_shared<GKBattery>(platform.broker());
  platform.recorder->clear();
  return sut;
}

inline std::vector<std::string> tick(TestPlatform& platform, GKBattery& sut, int times = 1) {
  for (int i = 0; i < times; ++i) {
    sut.updatePowerPlugged();
  }
  return takeLines(platform);
}

} // namespace GK::test::battery
