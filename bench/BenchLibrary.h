#pragma once

#include "bench/BenchPlatform.h"
#include "modules/battery/GKBattery.h"
#include "modules/fsr/GKFsr.h"
#include "modules/robotpose/GKRobotPose.h"
#include "modules/sensors/GKSensors.h"
#include "modules/sensors/SensorKeys.h"
#include "modules/sonar/GKSonar.h"
#include "tests/support/FastAccessGate.h"

#include <vector>

namespace GK {

/// Ticks the module without its loop.
class GKSensorsPeer {
public:
  static void bind(GKSensors& sensors) {
    sensors.xFindSiblings();
    sensors.xBindStiffness();
    sensors.xBindBoards();
    sensors.xConnectToMemory();
  }
  static void tick(GKSensors& sensors) { sensors.xTick(); }
};

} // namespace GK

namespace gk::bench {

/// All five modules, bound, with the sonar switched on.
class Library {
public:
  Library() {
    GK::GKMemoryFastAccessGate::open();
    for (const char* key : GK::kEventKeys) {
      fTouch.push_back(&xCell(key));
    }
    GK::GKModule::createModule<GK::GKSonar>(platform.broker)->subscribe("bench");
    GK::GKModule::createModule<GK::GKFsr>(platform.broker);
    GK::GKModule::createModule<GK::GKRobotPose>(platform.broker);
    GK::GKModule::createModule<GK::GKBattery>(platform.broker);
    sensors = GK::GKModule::createModule<GK::GKSensors>(platform.broker);
    GK::GKSensorsPeer::bind(*sensors);
    // Past everything that only the first ticks raise.
    for (int i = 0; i < 100; ++i) {
      tick();
    }
  }

  void tick() { GK::GKSensorsPeer::tick(*sensors); }

  /// Changes every value that can raise an event.
  void changeEverything() {
    fIsOn = !fIsOn;
    for (GK::GKMemoryCell* cell : fTouch) {
      cell->storeFloat(fIsOn ? 1.0F : 0.0F);
    }
    fStiffness.storeFloat(fIsOn ? 1.0F : 0.0F);
    fCharge.storeFloat(fIsOn ? 1.0F : 0.5F);
    fStatus.storeInt(fIsOn ? 0xE0 : 0);
    fVoltage.storeInt(fIsOn ? 4000 : 3900);
  }

  BenchPlatform platform;
  boost::shared_ptr<GK::GKSensors> sensors;

private:
  GK::GKMemoryCell& xCell(const char* key) { return platform.store->cell(key); }

  std::vector<GK::GKMemoryCell*> fTouch;
  GK::GKMemoryCell& fStiffness = xCell("Device/SubDeviceList/HeadPitch/Hardness/Actuator/Value");
  GK::GKMemoryCell& fCharge = xCell("Device/SubDeviceList/Battery/Charge/Sensor/Value");
  GK::GKMemoryCell& fStatus = xCell("Device/SubDeviceList/Battery/Charge/Sensor/Status");
  GK::GKMemoryCell& fVoltage = xCell("Device/SubDeviceList/Battery/Charge/Sensor/CellVoltageMin");
  bool fIsOn = false;
};

} // namespace gk::bench
