#pragma once

#include "gk/GKValue.h"
#include "messages/json/KeyTypes.h"

#include <array>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

/// The memory keys that device layers provide. This is the one place that lists them.
namespace gk::messages {

/// Who provides a key.
enum class Server : std::uint8_t {
  Every, ///< every device layer: what modules read
  Robot, ///< the simulated robot: what other programs may want of it
  World  ///< the simulated robot takes it as an order to the world around it
};

/// Values that a number may have.
struct Range {
  float least;
  float most;
};

/// A key of the device layer.
struct DeviceKey {
  std::string name;
  KeyType type = KeyType::Float;
  /// "m", "kg", "rad", "A", "degC"; empty for pure numbers.
  std::string_view unit;
  /// What the key holds before anything was measured: a robot at rest without any contact.
  GK::GKValue start;
  /// What the value tells, in a few words.
  std::string_view meaning;
  /// Nothing for what is no number or has no limits.
  std::optional<Range> range = std::nullopt;
  Server server = Server::Every;
};

/// The keys of every device layer, sorted by name. Never changes; from any thread, as everything
/// here.
const std::vector<DeviceKey>& deviceKeys();

/// All keys that the simulated robot provides, those of every device layer included, sorted by
/// name.
const std::vector<DeviceKey>& simulatedKeys();

/// The key of this name among all of them, or null.
const DeviceKey* findDeviceKey(std::string_view name);

/// The type of a key; `Any` for those that no device layer provides.
KeyType keyTypeOf(std::string_view name);

/// "float", "int", "bool", "string", "any".
std::string_view typeName(KeyType type);

/// All joints that have a motor of their own, sorted. The right hip yaw-pitch is driven by the left
/// one's.
std::span<const std::string_view> jointNames();
inline constexpr std::string_view kCoupledJoint = "RHipYawPitch";
inline constexpr std::string_view kCouplingJoint = "LHipYawPitch";

/// A motor board and the joints that it drives.
struct MotorBoard {
  std::string_view name;
  std::array<std::string_view, 2> joints; ///< the second one may be empty
};
std::span<const MotorBoard> motorBoards();

/// Touch sensors and buttons, as they stand in keys: "Head/Touch/Front". First come the bumpers:
/// left foot's left and right, right foot's left and right.
std::span<const std::string_view> touchSensors();

/// Distance that stands for "nothing in sight", m.
inline constexpr float kNoEcho = 2.55F;

/// Charge at which the battery is low and nearly empty, of 1.
inline constexpr float kLowCharge = 0.2F;
inline constexpr float kEmptyCharge = 0.1F;

/// What a motor board reports while it is hot: high, very high and too high.
inline constexpr int kFirstHeatError = 33;
inline constexpr int kLastHeatError = 35;

/// "Device/SubDeviceList/" + `device` + `quantity`, such as "/Position/Sensor/Value".
std::string deviceKey(std::string_view device, std::string_view quantity);
/// Error word of a motor board.
std::string boardErrorKey(std::string_view board);
/// Somebody touches a sensor of the simulated robot.
std::string touchKey(std::string_view sensor);

/// What the keys of the world around the simulated robot begin with.
inline constexpr const char* kWorldPrefix = "Simulation/";

inline constexpr const char* kIsStandKey = "Motion/IsStand";
inline constexpr const char* kEmitterKey = "Device/SubDeviceList/US/Actuator/Value";
inline constexpr const char* kHoistHoldKey = "Simulation/Hoist/Hold";
inline constexpr const char* kHoistHeightKey = "Simulation/Hoist/Height";
inline constexpr const char* kPushXKey = "Simulation/Push/X";
inline constexpr const char* kPushYKey = "Simulation/Push/Y";
inline constexpr const char* kLeftObstacleKey = "Simulation/Obstacle/Left/Distance";
inline constexpr const char* kRightObstacleKey = "Simulation/Obstacle/Right/Distance";
inline constexpr const char* kChargerKey = "Simulation/Charger/Plugged";
inline constexpr const char* kPostureKey = "Simulation/Posture";
inline constexpr const char* kAmbientKey = "Simulation/Ambient/Temperature";
inline constexpr const char* kMovingKey = "Simulation/Moving";
inline constexpr const char* kSpeedKey = "Simulation/Speed";

} // namespace gk::messages
