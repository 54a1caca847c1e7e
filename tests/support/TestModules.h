#pragma once

#include "modules/sensors/SensorKeys.h"
#include "support/FastAccessGate.h"
#include "support/TestPlatform.h"

#include <string>

extern "C" int _createModule(boost::shared_ptr<GK::GKBroker> broker);
extern "C" int _closeModule();

namespace GK {

namespace test {

/// A platform with every device key that the five modules read, at rest: nothing touched, no
/// weight, stiffness 0 of 1, no errors. Fast access is open.
class TestModules : public TestPlatform {
public:
  explicit TestModules(Services services = kAllServices) : TestPlatform(services) {
    GKMemoryFastAccessGate::open();
    for (const char* key : kEventKeys) {
      set(key, 0.0f);
    }
    set("Device/SubDeviceList/US/Left/Sensor/Value", 2.55f);
    set("Device/SubDeviceList/US/Right/Sensor/Value", 2.55f);
    for (const char* joint : kStiffnessJoints) {
      const std::string prefix = std::string("Device/SubDeviceList/") + joint;
      set(prefix + "/Hardness/Actuator/Max", 1.0f);
      set(prefix + "/Hardness/Actuator/Value", 0.0f);
      set(prefix + "/ElectricCurrent/Sensor/Value", 0.0f);
      set(prefix + "/Temperature/Sensor/Value", 30.0f);
      set(prefix + "/Position/Sensor/Value", 0.0f);
    }
    for (const MotorBoard& board : kMotorBoards) {
      set(std::string("Device/DeviceList/") + board.name + "/Error", 0);
    }
    set("Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value", 0.0f);
    set("Device/SubDeviceList/RFoot/FSR/TotalWeight/Sensor/Value", 0.0f);
    set("Device/SubDeviceList/InertialSensor/AngleX/Sensor/Value", 0.0f);
    set("Device/SubDeviceList/InertialSensor/AngleY/Sensor/Value", 0.0f);
    set("Motion/IsStand", 0.0f);
    set("RobotConfig/Body/Device/Legs/Version", 1);
    set("RobotConfig/Body/Device/Foot/Left/Version", 1);
    set("RobotConfig/Body/Device/Foot/Right/Version", 1);
    set("Device/SubDeviceList/Battery/Charge/Sensor/Value", 1.0f);
    set("Device/SubDeviceList/Battery/Charge/Sensor/Status", 0);
    set("Device/SubDeviceList/Battery/Charge/Sensor/CellVoltageMin", 0);
    set("Device/SubDeviceList/Battery/Current/Sensor/Value", 0.0f);
  }
};

} // namespace test

} // namespace GK
