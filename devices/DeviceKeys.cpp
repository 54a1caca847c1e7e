#include "devices/DeviceKeys.h"

#include <algorithm>
#include <cstdint>
#include <unordered_map>
#include <utility>

namespace gk::devices {

namespace {

constexpr std::string_view kDevices = "Device/SubDeviceList/";
constexpr std::string_view kBoards = "Device/DeviceList/";
constexpr std::string_view kSensorValue = "/Sensor/Value";

/// All joints that have a motor of their own. The right hip yaw-pitch is driven by the left one's.
constexpr std::string_view kJoints[] = {
    "HeadPitch",  "HeadYaw",        "LAnklePitch",    "LAnkleRoll",    "LElbowRoll",
    "LElbowYaw",  "LHand",          "LHipPitch",      "LHipRoll",      "LHipYawPitch",
    "LKneePitch", "LShoulderPitch", "LShoulderRoll",  "LWristYaw",     "RAnklePitch",
    "RAnkleRoll", "RElbowRoll",     "RElbowYaw",      "RHand",         "RHipPitch",
    "RHipRoll",   "RKneePitch",     "RShoulderPitch", "RShoulderRoll", "RWristYaw"};

/// The joints whose positions tell the posture.
constexpr std::string_view kLegJoints[] = {"LHipPitch",  "RHipPitch",   "LKneePitch",
                                           "RKneePitch", "LAnklePitch", "RAnklePitch"};

constexpr std::string_view kMotorBoards[] = {
    "HeadBoard",         "LeftArmBoard",       "LeftHipBoard",   "LeftShinBoard",
    "LeftShoulderBoard", "LeftThighBoard",     "RightArmBoard",  "RightHipBoard",
    "RightShinBoard",    "RightShoulderBoard", "RightThighBoard"};

constexpr std::string_view kTouchSensors[] = {
    "LFoot/Bumper/Left", "LFoot/Bumper/Right", "RFoot/Bumper/Left", "RFoot/Bumper/Right",
    "ChestBoard/Button", "Head/Touch/Front",   "Head/Touch/Middle", "Head/Touch/Rear",
    "LHand/Touch/Back",  "LHand/Touch/Left",   "LHand/Touch/Right", "RHand/Touch/Back",
    "RHand/Touch/Left",  "RHand/Touch/Right"};

constexpr std::string_view kVersions[] = {"Legs", "Foot/Left", "Foot/Right"};

/// Distance that stands for "nothing in sight".
constexpr float kNoEcho = 2.55F;
constexpr float kRestTemperature = 30.0F;

class TableBuilder {
public:
  void addFloat(std::string name, float start, std::string_view unit, std::string_view meaning) {
    fKeys.push_back({std::move(name), KeyType::Float, unit, start, meaning});
  }
  void addInt(std::string name, std::int32_t start, std::string_view meaning) {
    fKeys.push_back({std::move(name), KeyType::Int, "", start, meaning});
  }
  std::vector<DeviceKey> takeSorted() {
    std::ranges::sort(fKeys, {}, &DeviceKey::name);
    return std::move(fKeys);
  }

private:
  std::vector<DeviceKey> fKeys;
};

std::string sensor(std::string_view device) {
  return std::string(kDevices).append(device).append(kSensorValue);
}

std::string deviceKey(std::string_view device, std::string_view quantity) {
  return std::string(kDevices).append(device).append(quantity);
}

void addJoints(TableBuilder& table) {
  for (const std::string_view joint : kJoints) {
    table.addFloat(deviceKey(joint, "/Hardness/Actuator/Max"), 1.0F, "", "largest stiffness");
    table.addFloat(deviceKey(joint, "/Hardness/Actuator/Value"), 0.0F, "",
                   "stiffness, 0 (off) to 1");
    table.addFloat(deviceKey(joint, "/Temperature/Sensor/Value"), kRestTemperature, "degC",
                   "motor temperature");
    table.addFloat(deviceKey(joint, "/ElectricCurrent/Sensor/Value"), 0.0F, "A", "motor current");
  }
  for (const std::string_view joint : kLegJoints) {
    table.addFloat(deviceKey(joint, "/Position/Sensor/Value"), 0.0F, "rad", "joint position");
  }
  for (const std::string_view board : kMotorBoards) {
    table.addInt(std::string(kBoards).append(board).append("/Error"), 0,
                 "error code of the motor board, 0 for none");
  }
}

void addBody(TableBuilder& table) {
  for (const std::string_view touch : kTouchSensors) {
    table.addFloat(sensor(touch), 0.0F, "", "1 when pressed or touched, else 0");
  }
  for (const std::string_view side : {"Left", "Right"}) {
    table.addFloat(sensor(std::string("US/").append(side)), kNoEcho, "m", "ultrasonic distance");
  }
  for (const std::string_view foot : {"LFoot", "RFoot"}) {
    table.addFloat(sensor(std::string(foot).append("/FSR/TotalWeight")), 0.0F, "kg",
                   "weight on the foot");
  }
  for (const std::string_view axis : {"X", "Y"}) {
    table.addFloat(sensor(std::string("InertialSensor/Angle").append(axis)), 0.0F, "rad",
                   "inclination of the body about the axis");
  }
  table.addFloat("Motion/IsStand", 0.0F, "", "0 unless the motion layer keeps the robot standing");
  for (const std::string_view part : kVersions) {
    table.addInt(std::string("RobotConfig/Body/Device/").append(part).append("/Version"), 1,
                 "version of the part");
  }
}

void addBattery(TableBuilder& table) {
  table.addFloat(sensor("Battery/Charge"), 1.0F, "", "charge, 0 (empty) to 1");
  table.addFloat(sensor("Battery/Current"), 0.0F, "A", "battery current");
  table.addInt(deviceKey("Battery", "/Charge/Sensor/Status"), 0,
               "bits: 0x20 discharging, 0x40 full, 0x80 charging");
  table.addInt(deviceKey("Battery", "/Charge/Sensor/CellVoltageMin"), 0,
               "lowest voltage of a cell, raw");
}

using Index = std::unordered_map<std::string_view, const DeviceKey*>;

Index makeIndex() {
  Index index;
  for (const DeviceKey& key : deviceKeys()) {
    index.emplace(key.name, &key);
  }
  return index;
}

} // namespace

const std::vector<DeviceKey>& deviceKeys() {
  static const std::vector<DeviceKey> keys = [] {
    TableBuilder table;
    addJoints(table);
    addBody(table);
    addBattery(table);
    return table.takeSorted();
  }();
  return keys;
}

const DeviceKey* findDeviceKey(std::string_view name) {
  static const Index index = makeIndex();
  const auto found = index.find(name);
  return found == index.end() ? nullptr : found->second;
}

KeyType keyTypeOf(std::string_view name) {
  const DeviceKey* key = findDeviceKey(name);
  return key == nullptr ? KeyType::Any : key->type;
}

} // namespace gk::devices
