#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

/// The message types of ROS 2 that the robot speaks. Each stands once: `fields` names the members
/// in the order in which they are sent, and from that come the encoding, the definition's text and
/// the type's hash.
///
/// Names and members of the types are those of the packages common_interfaces, rcl_interfaces,
/// geometry2 and rmw_dds_common.
namespace gk::messages::ros {

/// A member of message `M`.
template <class M, class F> struct Field {
  std::string_view name;
  F M::*member;
};
template <class M, class F> Field(std::string_view, F M::*) -> Field<M, F>;

/// A string of at most `N` bytes. Whoever fills it keeps to that.
template <std::size_t N> struct BoundedString { std::string text; };

/// A byte that definitions call "char".
enum class Char : std::uint8_t {};

// --- builtin_interfaces, std_msgs

struct Time {
  std::int32_t sec = 0;
  std::uint32_t nanosec = 0;

  static constexpr std::string_view kName = "builtin_interfaces/msg/Time";
  static constexpr auto fields() {
    return std::tuple{Field{"sec", &Time::sec}, Field{"nanosec", &Time::nanosec}};
  }
};

struct Header {
  Time stamp;
  std::string frame_id;

  static constexpr std::string_view kName = "std_msgs/msg/Header";
  static constexpr auto fields() {
    return std::tuple{Field{"stamp", &Header::stamp}, Field{"frame_id", &Header::frame_id}};
  }
};

struct Bool {
  bool data = false;

  static constexpr std::string_view kName = "std_msgs/msg/Bool";
  static constexpr auto fields() { return std::tuple{Field{"data", &Bool::data}}; }
};

struct Float32 {
  float data = 0;

  static constexpr std::string_view kName = "std_msgs/msg/Float32";
  static constexpr auto fields() { return std::tuple{Field{"data", &Float32::data}}; }
};

struct String {
  std::string data;

  static constexpr std::string_view kName = "std_msgs/msg/String";
  static constexpr auto fields() { return std::tuple{Field{"data", &String::data}}; }
};

// --- geometry_msgs, tf2_msgs

struct Vector3 {
  double x = 0;
  double y = 0;
  double z = 0;

  static constexpr std::string_view kName = "geometry_msgs/msg/Vector3";
  static constexpr auto fields() {
    return std::tuple{Field{"x", &Vector3::x}, Field{"y", &Vector3::y}, Field{"z", &Vector3::z}};
  }
};

struct Point {
  double x = 0;
  double y = 0;
  double z = 0;

  static constexpr std::string_view kName = "geometry_msgs/msg/Point";
  static constexpr auto fields() {
    return std::tuple{Field{"x", &Point::x}, Field{"y", &Point::y}, Field{"z", &Point::z}};
  }
};

struct Quaternion {
  double x = 0;
  double y = 0;
  double z = 0;
  double w = 1;

  static constexpr std::string_view kName = "geometry_msgs/msg/Quaternion";
  static constexpr auto fields() {
    return std::tuple{Field{"x", &Quaternion::x}, Field{"y", &Quaternion::y},
                      Field{"z", &Quaternion::z}, Field{"w", &Quaternion::w}};
  }
};

struct Wrench {
  Vector3 force;
  Vector3 torque;

  static constexpr std::string_view kName = "geometry_msgs/msg/Wrench";
  static constexpr auto fields() {
    return std::tuple{Field{"force", &Wrench::force}, Field{"torque", &Wrench::torque}};
  }
};

struct WrenchStamped {
  Header header;
  Wrench wrench;

  static constexpr std::string_view kName = "geometry_msgs/msg/WrenchStamped";
  static constexpr auto fields() {
    return std::tuple{Field{"header", &WrenchStamped::header},
                      Field{"wrench", &WrenchStamped::wrench}};
  }
};

struct PointStamped {
  Header header;
  Point point;

  static constexpr std::string_view kName = "geometry_msgs/msg/PointStamped";
  static constexpr auto fields() {
    return std::tuple{Field{"header", &PointStamped::header}, Field{"point", &PointStamped::point}};
  }
};

struct Transform {
  Vector3 translation;
  Quaternion rotation;

  static constexpr std::string_view kName = "geometry_msgs/msg/Transform";
  static constexpr auto fields() {
    return std::tuple{Field{"translation", &Transform::translation},
                      Field{"rotation", &Transform::rotation}};
  }
};

struct TransformStamped {
  Header header;
  std::string child_frame_id;
  Transform transform;

  static constexpr std::string_view kName = "geometry_msgs/msg/TransformStamped";
  static constexpr auto fields() {
    return std::tuple{Field{"header", &TransformStamped::header},
                      Field{"child_frame_id", &TransformStamped::child_frame_id},
                      Field{"transform", &TransformStamped::transform}};
  }
};

struct TFMessage {
  std::vector<TransformStamped> transforms;

  static constexpr std::string_view kName = "tf2_msgs/msg/TFMessage";
  static constexpr auto fields() { return std::tuple{Field{"transforms", &TFMessage::transforms}}; }
};

// --- sensor_msgs

struct Range {
  static constexpr std::uint8_t kUltrasound = 0;

  Header header;
  std::uint8_t radiation_type = kUltrasound;
  float field_of_view = 0; ///< rad
  float min_range = 0;     ///< m
  float max_range = 0;     ///< m
  float range = 0;         ///< m; infinite for nothing in sight, minus infinity for too close
  float variance = 0;      ///< 0 for unknown; unknown to the oldest release, which ignores it

  static constexpr std::string_view kName = "sensor_msgs/msg/Range";
  static constexpr auto fields() {
    return std::tuple{Field{"header", &Range::header},
                      Field{"radiation_type", &Range::radiation_type},
                      Field{"field_of_view", &Range::field_of_view},
                      Field{"min_range", &Range::min_range},
                      Field{"max_range", &Range::max_range},
                      Field{"range", &Range::range},
                      Field{"variance", &Range::variance}};
  }
};

/// The first number of a covariance is -1 where the quantity is not measured; all are 0 where only
/// its exactness is unknown.
struct Imu {
  using Covariance = std::array<double, 9>;

  Header header;
  Quaternion orientation;
  Covariance orientation_covariance{};
  Vector3 angular_velocity; ///< rad/s
  Covariance angular_velocity_covariance{};
  Vector3 linear_acceleration; ///< m/s^2, gravity included: upwards at rest
  Covariance linear_acceleration_covariance{};

  static constexpr std::string_view kName = "sensor_msgs/msg/Imu";
  static constexpr auto fields() {
    return std::tuple{
        Field{"header", &Imu::header},
        Field{"orientation", &Imu::orientation},
        Field{"orientation_covariance", &Imu::orientation_covariance},
        Field{"angular_velocity", &Imu::angular_velocity},
        Field{"angular_velocity_covariance", &Imu::angular_velocity_covariance},
        Field{"linear_acceleration", &Imu::linear_acceleration},
        Field{"linear_acceleration_covariance", &Imu::linear_acceleration_covariance}};
  }
};

struct JointState {
  Header header;
  std::vector<std::string> name;
  std::vector<double> position; ///< rad
  std::vector<double> velocity;
  std::vector<double> effort;

  static constexpr std::string_view kName = "sensor_msgs/msg/JointState";
  static constexpr auto fields() {
    return std::tuple{Field{"header", &JointState::header}, Field{"name", &JointState::name},
                      Field{"position", &JointState::position},
                      Field{"velocity", &JointState::velocity},
                      Field{"effort", &JointState::effort}};
  }
};

/// What is not measured is not a number.
struct BatteryState {
  static constexpr std::uint8_t kStatusUnknown = 0;
  static constexpr std::uint8_t kCharging = 1;
  static constexpr std::uint8_t kDischarging = 2;
  static constexpr std::uint8_t kNotCharging = 3;
  static constexpr std::uint8_t kFull = 4;
  static constexpr std::uint8_t kHealthUnknown = 0;
  static constexpr std::uint8_t kTechnologyUnknown = 0;

  Header header;
  float voltage = 0;         ///< V
  float temperature = 0;     ///< degrees Celsius
  float current = 0;         ///< A, negative when discharging
  float charge = 0;          ///< A h
  float capacity = 0;        ///< A h
  float design_capacity = 0; ///< A h
  float percentage = 0;      ///< 0 to 1
  std::uint8_t power_supply_status = kStatusUnknown;
  std::uint8_t power_supply_health = kHealthUnknown;
  std::uint8_t power_supply_technology = kTechnologyUnknown;
  bool present = false;
  std::vector<float> cell_voltage;     ///< V
  std::vector<float> cell_temperature; ///< degrees Celsius
  std::string location;
  std::string serial_number;

  static constexpr std::string_view kName = "sensor_msgs/msg/BatteryState";
  static constexpr auto fields() {
    return std::tuple{Field{"header", &BatteryState::header},
                      Field{"voltage", &BatteryState::voltage},
                      Field{"temperature", &BatteryState::temperature},
                      Field{"current", &BatteryState::current},
                      Field{"charge", &BatteryState::charge},
                      Field{"capacity", &BatteryState::capacity},
                      Field{"design_capacity", &BatteryState::design_capacity},
                      Field{"percentage", &BatteryState::percentage},
                      Field{"power_supply_status", &BatteryState::power_supply_status},
                      Field{"power_supply_health", &BatteryState::power_supply_health},
                      Field{"power_supply_technology", &BatteryState::power_supply_technology},
                      Field{"present", &BatteryState::present},
                      Field{"cell_voltage", &BatteryState::cell_voltage},
                      Field{"cell_temperature", &BatteryState::cell_temperature},
                      Field{"location", &BatteryState::location},
                      Field{"serial_number", &BatteryState::serial_number}};
  }
};

struct Temperature {
  Header header;
  double temperature = 0; ///< degrees Celsius
  double variance = 0;    ///< 0 for unknown

  static constexpr std::string_view kName = "sensor_msgs/msg/Temperature";
  static constexpr auto fields() {
    return std::tuple{Field{"header", &Temperature::header},
                      Field{"temperature", &Temperature::temperature},
                      Field{"variance", &Temperature::variance}};
  }
};

// --- diagnostic_msgs

struct KeyValue {
  std::string key;
  std::string value;

  static constexpr std::string_view kName = "diagnostic_msgs/msg/KeyValue";
  static constexpr auto fields() {
    return std::tuple{Field{"key", &KeyValue::key}, Field{"value", &KeyValue::value}};
  }
};

struct DiagnosticStatus {
  static constexpr std::byte kOk{0};
  static constexpr std::byte kWarn{1};
  static constexpr std::byte kError{2};
  static constexpr std::byte kStale{3};

  std::byte level = kOk;
  std::string name;
  std::string message;
  std::string hardware_id;
  std::vector<KeyValue> values;

  static constexpr std::string_view kName = "diagnostic_msgs/msg/DiagnosticStatus";
  static constexpr auto fields() {
    return std::tuple{Field{"level", &DiagnosticStatus::level},
                      Field{"name", &DiagnosticStatus::name},
                      Field{"message", &DiagnosticStatus::message},
                      Field{"hardware_id", &DiagnosticStatus::hardware_id},
                      Field{"values", &DiagnosticStatus::values}};
  }
};

struct DiagnosticArray {
  Header header;
  std::vector<DiagnosticStatus> status;

  static constexpr std::string_view kName = "diagnostic_msgs/msg/DiagnosticArray";
  static constexpr auto fields() {
    return std::tuple{Field{"header", &DiagnosticArray::header},
                      Field{"status", &DiagnosticArray::status}};
  }
};

// --- rosgraph_msgs, rcl_interfaces, rmw_dds_common

struct Clock {
  Time clock;

  static constexpr std::string_view kName = "rosgraph_msgs/msg/Clock";
  static constexpr auto fields() { return std::tuple{Field{"clock", &Clock::clock}}; }
};

struct Log {
  static constexpr std::uint8_t kDebug = 10;
  static constexpr std::uint8_t kInfo = 20;
  static constexpr std::uint8_t kWarn = 30;
  static constexpr std::uint8_t kError = 40;
  static constexpr std::uint8_t kFatal = 50;

  Time stamp;
  std::uint8_t level = 0;
  std::string name;
  std::string msg;
  std::string file;
  std::string function;
  std::uint32_t line = 0;

  static constexpr std::string_view kName = "rcl_interfaces/msg/Log";
  static constexpr auto fields() {
    return std::tuple{Field{"stamp", &Log::stamp}, Field{"level", &Log::level},
                      Field{"name", &Log::name},   Field{"msg", &Log::msg},
                      Field{"file", &Log::file},   Field{"function", &Log::function},
                      Field{"line", &Log::line}};
  }
};

/// The identity of a participant or of an endpoint, as all releases but the oldest know it.
struct Gid {
  std::array<Char, 16> data{};

  static constexpr std::string_view kName = "rmw_dds_common/msg/Gid";
  static constexpr auto fields() { return std::tuple{Field{"data", &Gid::data}}; }
};

struct NodeEntitiesInfo {
  BoundedString<256> node_namespace;
  BoundedString<256> node_name;
  std::vector<Gid> reader_gid_seq;
  std::vector<Gid> writer_gid_seq;

  static constexpr std::string_view kName = "rmw_dds_common/msg/NodeEntitiesInfo";
  static constexpr auto fields() {
    return std::tuple{Field{"node_namespace", &NodeEntitiesInfo::node_namespace},
                      Field{"node_name", &NodeEntitiesInfo::node_name},
                      Field{"reader_gid_seq", &NodeEntitiesInfo::reader_gid_seq},
                      Field{"writer_gid_seq", &NodeEntitiesInfo::writer_gid_seq}};
  }
};

struct ParticipantEntitiesInfo {
  Gid gid;
  std::vector<NodeEntitiesInfo> node_entities_info_seq;

  static constexpr std::string_view kName = "rmw_dds_common/msg/ParticipantEntitiesInfo";
  static constexpr auto fields() {
    return std::tuple{
        Field{"gid", &ParticipantEntitiesInfo::gid},
        Field{"node_entities_info_seq", &ParticipantEntitiesInfo::node_entities_info_seq}};
  }
};

} // namespace gk::messages::ros
