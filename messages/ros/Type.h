#pragma once

#include <string>

namespace gk::messages::ros {

/// What is known of a message type.
struct Type {
  /// "sensor_msgs/msg/Range".
  std::string name;
  /// The name that DDS has for it: "sensor_msgs::msg::dds_::Range_".
  std::string ddsName;
  /// Its definition as `ros2msg` text, with those of all types within it.
  std::string definition;
  /// "RIHS01_" and 64 digits.
  std::string hash;
};

} // namespace gk::messages::ros
