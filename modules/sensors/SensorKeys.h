#pragma once

#include <array>
#include <cstddef>
#include <string>

/// What the sensor monitor reads and what it tells: memory keys, joints, motor boards, events.
namespace GK {

/// The category of the log lines.
inline constexpr const char* kSensorsCategory = "motion.sensors";

// Events, by the names that clients subscribe to.
inline const std::string szKeyNameRightBumper = "RightBumperPressed";
inline const std::string szKeyNameLeftBumper = "LeftBumperPressed";
inline const std::string szKeyNameChestButton = "ChestButtonPressed";
inline const std::string szKeyNameTactilFront = "FrontTactilTouched";
inline const std::string szKeyNameTactilMiddle = "MiddleTactilTouched";
inline const std::string szKeyNameTactilRear = "RearTactilTouched";
inline const std::string szKeyNameTactilHandRightBack = "HandRightBackTouched";
inline const std::string szKeyNameTactilHandRightLeft = "HandRightLeftTouched";
inline const std::string szKeyNameTactilHandRightRight = "HandRightRightTouched";
inline const std::string szKeyNameTactilHandLeftBack = "HandLeftBackTouched";
inline const std::string szKeyNameTactilHandLeftLeft = "HandLeftLeftTouched";
inline const std::string szKeyNameTactilHandLeftRight = "HandLeftRightTouched";
inline const std::string strHeatEvent = "HotJoinDetected";
inline const std::string szKeyNameEventStiffnessChanged = "BodyStiffnessChanged";

/// Category of all log lines of the sensor monitor.
inline constexpr const char* kSensorsLogCategory = "motion.sensors";

/// Values of `szKeyNameEventStiffnessChanged`: what all joints agree on.
enum BodyStiffness : int {
  kStiffnessUnknown = -1, ///< there are no joints
  kStiffnessOff = 0,
  kStiffnessIntermediate = 1, ///< they do not agree, or are in between
  kStiffnessFull = 2
};

/// Places of the event keys in the values of a tick.
enum SensorIndex : std::size_t {
  kLeftFootRightBumper,
  kLeftFootLeftBumper,
  kRightFootRightBumper,
  kRightFootLeftBumper,
  kChestButton,
  kHeadFront,
  kHeadMiddle,
  kHeadRear,
  kSonarRight,
  kSonarLeft,
  kRightHandBack,
  kRightHandLeft,
  kRightHandRight,
  kLeftHandBack,
  kLeftHandLeft,
  kLeftHandRight,
  kSensorCount
};

/// The memory keys read on each tick, by `SensorIndex`. Touch, bumpers and buttons: 0.0 when free,
/// 1.0 when pressed; ultrasonic distances in metres.
inline constexpr std::array<const char*, kSensorCount> kEventKeys = {
    "Device/SubDeviceList/LFoot/Bumper/Right/Sensor/Value",
    "Device/SubDeviceList/LFoot/Bumper/Left/Sensor/Value",
    "Device/SubDeviceList/RFoot/Bumper/Right/Sensor/Value",
    "Device/SubDeviceList/RFoot/Bumper/Left/Sensor/Value",
    "Device/SubDeviceList/ChestBoard/Button/Sensor/Value",
    "Device/SubDeviceList/Head/Touch/Front/Sensor/Value",
    "Device/SubDeviceList/Head/Touch/Middle/Sensor/Value",
    "Device/SubDeviceList/Head/Touch/Rear/Sensor/Value",
    "Device/SubDeviceList/US/Right/Sensor/Value",
    "Device/SubDeviceList/US/Left/Sensor/Value",
    "Device/SubDeviceList/RHand/Touch/Back/Sensor/Value",
    "Device/SubDeviceList/RHand/Touch/Left/Sensor/Value",
    "Device/SubDeviceList/RHand/Touch/Right/Sensor/Value",
    "Device/SubDeviceList/LHand/Touch/Back/Sensor/Value",
    "Device/SubDeviceList/LHand/Touch/Left/Sensor/Value",
    "Device/SubDeviceList/LHand/Touch/Right/Sensor/Value",
};

/// Joints whose stiffness counts for the body's. The right hip yaw-pitch is missing because it is
/// coupled to the left one.
inline constexpr std::array<const char*, 25> kStiffnessJoints = {
    "HeadPitch",  "HeadYaw",        "LAnklePitch",    "LAnkleRoll",    "LElbowRoll",
    "LElbowYaw",  "LHand",          "LHipPitch",      "LHipRoll",      "LHipYawPitch",
    "LKneePitch", "LShoulderPitch", "LShoulderRoll",  "LWristYaw",     "RAnklePitch",
    "RAnkleRoll", "RElbowRoll",     "RElbowYaw",      "RHand",         "RHipPitch",
    "RHipRoll",   "RKneePitch",     "RShoulderPitch", "RShoulderRoll", "RWristYaw",
};

/// A motor board and the joints that it drives.
struct MotorBoard {
  const char* name;
  const char* firstJoint;
  /// Null for a board whose second temperature is not watched.
  const char* secondJoint;
};

/// Motor boards whose temperature errors are watched. Two boards of the right side are watched
/// through one joint only, unlike their left counterparts.
inline constexpr std::array<MotorBoard, 11> kMotorBoards = {{
    {"HeadBoard", "HeadPitch", "HeadYaw"},
    {"LeftArmBoard", "LElbowRoll", "LElbowYaw"},
    {"LeftHipBoard", "LHipRoll", "LHipYawPitch"},
    {"LeftShinBoard", "LAnklePitch", "LAnkleRoll"},
    {"LeftShoulderBoard", "LShoulderPitch", "LShoulderRoll"},
    {"LeftThighBoard", "LHipPitch", "LKneePitch"},
    {"RightArmBoard", "RElbowRoll", nullptr},
    {"RightHipBoard", "RHipRoll", nullptr},
    {"RightShinBoard", "RAnklePitch", "RAnkleRoll"},
    {"RightShoulderBoard", "RShoulderPitch", "RShoulderRoll"},
    {"RightThighBoard", "RHipPitch", "RKneePitch"},
}};

/// "Device/SubDeviceList/JOINT/Hardness/Actuator/", to be followed by "Max" or "Value".
inline std::string hardnessPrefix(const char* joint) {
  return std::string("Device/SubDeviceList/") + joint + "/Hardness/Actuator/";
}

/// Key of a joint's temperature in degrees Celsius; empty for no joint.
inline std::string temperatureKey(const char* joint) {
  return joint == nullptr
             ? std::string()
             : std::string("Device/SubDeviceList/") + joint + "/Temperature/Sensor/Value";
}

/// Key of a board's error word, an int.
inline std::string boardErrorKey(const char* board) {
  return std::string("Device/DeviceList/") + board + "/Error";
}

} // namespace GK
