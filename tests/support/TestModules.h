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
      insert(key, 0.0f);
    }
    insert("Device/SubDeviceList/US/Left/Sensor/Value", 2.55f);
    insert("Device/SubDeviceList/US/Right/Sensor/Value", 2.55f);
    for (const char* joint : kStiffnessJoints) {
      const std::string prefix = std::string("Device/SubDeviceList/") + joint;
      insert(prefix + "/Hardness/Actuator/Max", 1.0f);
      insert(prefix + "/Hardness/Actuator/Value", 0.0f);
      insert(prefix + "/ElectricCurrent/Sensor/Value", 0.0f);
      insert(prefix + "/Temperature/Sensor/Value", 30.0f);
      insert(prefix + "/Position/Sensor/Value", 0.0f);
    }
    for (const MotorBoard& board : kMotorBoards) {
      insert(std::string("Device/DeviceList/") + board.name + "/Error", 0);
    }
    insert("Device/SubDeviceList/LFoot/FSR/TotalWeight/Sensor/Value", 0.0f);
    insert("Device/SubDeviceList/RFoot/FSR/TotalWeight/Sensor/Value", 0.0f);
    insert("Device/SubDeviceList/InertialSensor/AngleX/Sensor/Value", 0.0f);
    insert("Device/SubDeviceList/InertialSensor/AngleY/Sensor/Value", 0.0f);
    insert("Motion/IsStand", 0.0f);
    insert("RobotConfig/Body/Device/Legs/Version", 1);
    insert("RobotConfig/Body/Device/Foot/Left/Version", 1);
    insert("RobotConfig/Body/Device/Foot/Right/Version", 1);
    insert("Device/SubDeviceList/Battery/Charge/Sensor/Value", 1.0f);
    insert("Device/SubDeviceList/Battery/Charge/Sensor/Status", 0);
    insert("Device/SubDeviceList/Battery/Charge/Sensor/CellVoltageMin", 0);
    insert("Device/SubDeviceList/Battery/Current/Sensor/Value", 0.0f);
  }
};

} // namespace test

} // namespace GK
