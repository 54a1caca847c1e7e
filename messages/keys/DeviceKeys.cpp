#include "messages/keys/DeviceKeys.h"

#include <algorithm>
#include <cstdint>
#include <iterator>
#include <numbers>
#include <unordered_map>
#include <utility>

namespace gk::messages {

namespace {

constexpr std::string_view kDevices = "Device/SubDeviceList/";
constexpr std::string_view kBoards = "Device/DeviceList/";
constexpr std::string_view kTouches = "Simulation/Touch/";
constexpr std::string_view kSensorValue = "/Sensor/Value";
constexpr std::string_view kPosition = "/Position/Sensor/Value";

constexpr std::string_view kJoints[] = {
    "HeadPitch",  "HeadYaw",        "LAnklePitch",    "LAnkleRoll",    "LElbowRoll",
    "LElbowYaw",  "LHand",          "LHipPitch",      "LHipRoll",      "LHipYawPitch",
    "LKneePitch", "LShoulderPitch", "LShoulderRoll",  "LWristYaw",     "RAnklePitch",
    "RAnkleRoll", "RElbowRoll",     "RElbowYaw",      "RHand",         "RHipPitch",
    "RHipRoll",   "RKneePitch",     "RShoulderPitch", "RShoulderRoll", "RWristYaw"};

/// Mechanical limits of the simulated robot's joints in the order of `kJoints`, degrees.
constexpr Range kLimits[] = {{-38, 30},   {-115, 115}, {-72, 54},   {-44, 24},   {-88, -2},
                             {-118, 118}, {0, 57},     {-118, 28},  {-22, 45},   {-65, 42},
                             {-5, 124},   {-118, 118}, {-18, 76},   {-100, 100}, {-72, 54},
                             {-24, 44},   {2, 88},     {-118, 118}, {0, 57},     {-118, 28},
                             {-45, 22},   {-5, 124},   {-118, 118}, {-76, 18},   {-100, 100}};
static_assert(std::size(kLimits) == std::size(kJoints));

/// The joints whose positions tell the posture.
constexpr std::string_view kLegJoints[] = {"LHipPitch",  "RHipPitch",   "LKneePitch",
                                           "RKneePitch", "LAnklePitch", "RAnklePitch"};

constexpr MotorBoard kMotorBoards[] = {{"HeadBoard", {"HeadPitch", "HeadYaw"}},
                                       {"LeftArmBoard", {"LElbowRoll", "LElbowYaw"}},
                                       {"LeftHipBoard", {"LHipRoll", "LHipYawPitch"}},
                                       {"LeftShinBoard", {"LAnklePitch", "LAnkleRoll"}},
                                       {"LeftShoulderBoard", {"LShoulderPitch", "LShoulderRoll"}},
                                       {"LeftThighBoard", {"LHipPitch", "LKneePitch"}},
                                       {"RightArmBoard", {"RElbowRoll", "RElbowYaw"}},
                                       {"RightHipBoard", {"RHipRoll", ""}},
                                       {"RightShinBoard", {"RAnklePitch", "RAnkleRoll"}},
                                       {"RightShoulderBoard", {"RShoulderPitch", "RShoulderRoll"}},
                                       {"RightThighBoard", {"RHipPitch", "RKneePitch"}}};

constexpr std::string_view kTouchSensors[] = {
    "LFoot/Bumper/Left", "LFoot/Bumper/Right", "RFoot/Bumper/Left", "RFoot/Bumper/Right",
    "ChestBoard/Button", "Head/Touch/Front",   "Head/Touch/Middle", "Head/Touch/Rear",
    "LHand/Touch/Back",  "LHand/Touch/Left",   "LHand/Touch/Right", "RHand/Touch/Back",
    "RHand/Touch/Left",  "RHand/Touch/Right"};

constexpr std::string_view kVersions[] = {"Legs", "Foot/Left", "Foot/Right"};

constexpr float kRestTemperature = 30.0F;
constexpr Range kShare = {0.0F, 1.0F};
constexpr Range kAngles = {-std::numbers::pi_v<float>, std::numbers::pi_v<float>};

Range radians(Range degrees) {
  constexpr double factor = std::numbers::pi / 180;
  return {static_cast<float>(degrees.least * factor), static_cast<float>(degrees.most * factor)};
}

class TableBuilder {
public:
  explicit TableBuilder(Server server) : fServer(server) {}

  void addFloat(std::string name, float start, std::string_view unit, std::string_view meaning,
                std::optional<Range> range = {}) {
    fKeys.push_back({std::move(name), KeyType::Float, unit, start, meaning, range, fServer});
  }
  void addInt(std::string name, std::int32_t start, std::string_view meaning,
              std::optional<Range> range = {}) {
    fKeys.push_back({std::move(name), KeyType::Int, "", start, meaning, range, fServer});
  }
  void addBool(std::string name, std::string_view meaning) {
    fKeys.push_back({std::move(name), KeyType::Bool, "", false, meaning, {}, fServer});
  }
  void addText(std::string name, std::string_view start, std::string_view meaning) {
    fKeys.push_back({std::move(name), KeyType::Text, "", std::string(start), meaning, {}, fServer});
  }
  void append(const std::vector<DeviceKey>& keys) {
    fKeys.insert(fKeys.end(), keys.begin(), keys.end());
  }
  std::vector<DeviceKey> takeSorted() {
    std::ranges::sort(fKeys, {}, &DeviceKey::name);
    return std::move(fKeys);
  }

private:
  Server fServer;
  std::vector<DeviceKey> fKeys;
};

std::string sensor(std::string_view device) {
  return deviceKey(device, kSensorValue);
}

void addJoints(TableBuilder& table) {
  for (const std::string_view joint : kJoints) {
    table.addFloat(deviceKey(joint, "/Hardness/Actuator/Max"), 1.0F, "", "largest stiffness");
    table.addFloat(deviceKey(joint, "/Hardness/Actuator/Value"), 0.0F, "",
                   "stiffness, 0 (off) to 1", kShare);
    table.addFloat(deviceKey(joint, "/Temperature/Sensor/Value"), kRestTemperature, "degC",
                   "motor temperature");
    table.addFloat(deviceKey(joint, "/ElectricCurrent/Sensor/Value"), 0.0F, "A", "motor current");
  }
  for (const std::string_view joint : kLegJoints) {
    const auto place = std::ranges::find(kJoints, joint) - std::begin(kJoints);
    table.addFloat(deviceKey(joint, kPosition), 0.0F, "rad", "joint position",
                   radians(kLimits[place]));
  }
  for (const MotorBoard& board : kMotorBoards) {
    table.addInt(boardErrorKey(board.name), 0, "error code of the motor board, 0 for none");
  }
}

void addBody(TableBuilder& table) {
  for (const std::string_view touch : kTouchSensors) {
    table.addFloat(sensor(touch), 0.0F, "", "1 when pressed or touched, else 0", kShare);
  }
  for (const std::string_view side : {"Left", "Right"}) {
    table.addFloat(sensor(std::string("US/").append(side)), kNoEcho, "m", "ultrasonic distance",
                   Range{0.0F, kNoEcho});
  }
  for (const std::string_view foot : {"LFoot", "RFoot"}) {
    table.addFloat(sensor(std::string(foot).append("/FSR/TotalWeight")), 0.0F, "kg",
                   "weight on the foot");
  }
  for (const std::string_view axis : {"X", "Y"}) {
    table.addFloat(sensor(std::string("InertialSensor/Angle").append(axis)), 0.0F, "rad",
                   "inclination of the body about the axis", kAngles);
  }
  table.addFloat(kIsStandKey, 0.0F, "", "0 unless the motion layer keeps the robot standing",
                 kShare);
  for (const std::string_view part : kVersions) {
    table.addInt(std::string("RobotConfig/Body/Device/").append(part).append("/Version"), 1,
                 "version of the part");
  }
}

void addBattery(TableBuilder& table) {
  table.addFloat(sensor("Battery/Charge"), 1.0F, "", "charge, 0 (empty) to 1", kShare);
  table.addFloat(sensor("Battery/Current"), 0.0F, "A", "battery current");
  table.addInt(deviceKey("Battery", "/Charge/Sensor/Status"), 0,
               "bits: 0x20 discharging, 0x40 full, 0x80 charging");
  table.addInt(deviceKey("Battery", "/Charge/Sensor/CellVoltageMin"), 0,
               "lowest voltage of a cell, raw");
}

void addRobot(TableBuilder& table) {
  for (std::size_t i = 0; i < std::size(kJoints); ++i) {
    table.addFloat(deviceKey(kJoints[i], "/Position/Actuator/Value"), 0.0F, "rad",
                   "angle that the servo strives for", radians(kLimits[i]));
    if (std::ranges::find(kLegJoints, kJoints[i]) == std::end(kLegJoints)) {
      table.addFloat(deviceKey(kJoints[i], kPosition), 0.0F, "rad", "joint position",
                     radians(kLimits[i]));
    }
  }
  table.addFloat(deviceKey(kCoupledJoint, kPosition), 0.0F, "rad",
                 "joint position, driven by LHipYawPitch");
  for (const std::string_view foot : {"LFoot", "RFoot"}) {
    for (const std::string_view cell : {"FrontLeft", "FrontRight", "RearLeft", "RearRight"}) {
      table.addFloat(sensor(std::string(foot).append("/FSR/").append(cell)), 0.0F, "kg",
                     "weight on the force cell");
    }
  }
  for (const std::string_view axis : {"X", "Y", "Z"}) {
    table.addFloat(sensor(std::string("InertialSensor/Acc").append(axis)), 0.0F, "m/s^2",
                   "acceleration along the body's axis, gravity included");
    table.addFloat(sensor(std::string("InertialSensor/Gyr").append(axis)), 0.0F, "rad/s",
                   "rotation rate about the body's axis");
  }
  constexpr float emittersOff = 32.0F;
  table.addFloat(kEmitterKey, emittersOff, "", "ultrasonic emitters: 68 on, 32 off");
  table.addBool(kMovingKey, "the posture player is at work");
  table.addFloat(kSpeedKey, 0.0F, "m/s", "speed of the robot's fastest part");
}

void addWorld(TableBuilder& table) {
  for (const std::string_view touch : kTouchSensors) {
    table.addBool(touchKey(touch), "somebody touches or presses the sensor");
  }
  table.addBool(kHoistHoldKey, "the hoist carries the robot");
  table.addFloat(kHoistHeightKey, 0.45F, "m", "height at which the hoist carries the torso",
                 Range{0.1F, 1.0F});
  for (const char* key : {kPushXKey, kPushYKey}) {
    table.addFloat(key, 0.0F, "N", "push on the chest, ahead (X) or to the left (Y)",
                   Range{-60.0F, 60.0F});
  }
  for (const char* key : {kLeftObstacleKey, kRightObstacleKey}) {
    table.addFloat(key, kNoEcho, "m", "distance of an obstacle on this side, 2.55 for none",
                   Range{0.05F, kNoEcho});
  }
  table.addBool(kChargerKey, "the charger is plugged in");
  table.addText(kPostureKey, "Stand", "posture to move to");
  table.addFloat(kAmbientKey, 27.0F, "degC", "temperature of the room", Range{-20.0F, 80.0F});
}

using Index = std::unordered_map<std::string_view, const DeviceKey*>;

Index makeIndex() {
  Index index;
  for (const auto* keys : {&deviceKeys(), &simulatedKeys()}) {
    for (const DeviceKey& key : *keys) {
      index.emplace(key.name, &key);
    }
  }
  return index;
}

} // namespace

const std::vector<DeviceKey>& deviceKeys() {
  static const std::vector<DeviceKey> keys = [] {
    TableBuilder table(Server::Every);
    addJoints(table);
    addBody(table);
    addBattery(table);
    return table.takeSorted();
  }();
  return keys;
}

const std::vector<DeviceKey>& simulatedKeys() {
  static const std::vector<DeviceKey> keys = [] {
    TableBuilder robot(Server::Robot);
    addRobot(robot);
    TableBuilder world(Server::World);
    addWorld(world);
    world.append(robot.takeSorted());
    world.append(deviceKeys());
    return world.takeSorted();
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

std::string_view typeName(KeyType type) {
  switch (type) {
  case KeyType::Float:
    return "float";
  case KeyType::Int:
    return "int";
  case KeyType::Bool:
    return "bool";
  case KeyType::Text:
    return "string";
  case KeyType::Any:
    break;
  }
  return "any";
}

std::span<const std::string_view> jointNames() {
  return kJoints;
}

std::span<const MotorBoard> motorBoards() {
  return kMotorBoards;
}

std::span<const std::string_view> touchSensors() {
  return kTouchSensors;
}

std::string deviceKey(std::string_view device, std::string_view quantity) {
  return std::string(kDevices).append(device).append(quantity);
}

std::string boardErrorKey(std::string_view board) {
  return std::string(kBoards).append(board).append("/Error");
}

std::string touchKey(std::string_view sensorName) {
  return std::string(kTouches).append(sensorName);
}

} // namespace gk::messages
