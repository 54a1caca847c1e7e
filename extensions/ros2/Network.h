#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

/// Who may find this participant, as the environment of ROS says it.
namespace gk::ros2 {

struct Network {
  enum class Range : std::uint8_t {
    Machine, ///< programs on this machine
    Subnet,  ///< whoever the network's multicast reaches
    Nobody,  ///< no discovery at all
    System   ///< as Cyclone DDS and its own configuration have it
  };

  /// 0 to `kMostDomain`.
  std::uint32_t domain = 0;
  Range range = Range::Machine;
  /// Addresses or names of machines that are asked directly.
  std::vector<std::string> peers;
  /// Of the network; empty for the one that Cyclone DDS prefers.
  std::string interface;
};

/// The ports of a domain beyond have no numbers.
inline constexpr std::uint32_t kMostDomain = 232;
/// So many participants find each other on one machine without multicast.
inline constexpr int kMostParticipants = 32;

/// The value of a variable, or null.
using Environment = std::function<const char*(const char* variable)>;

/// Reads ROS_DOMAIN_ID, ROS_AUTOMATIC_DISCOVERY_RANGE, ROS_STATIC_PEERS and ROS_LOCALHOST_ONLY.
/// `interface`: the name of a network's interface, which is asked for by somebody; may be empty.
/// Raises std::invalid_argument with one line that names what is wrong.
Network readNetwork(const Environment& environment, const std::string& interface);

/// What Cyclone DDS is to be configured with. `own`: what the user has in CYCLONEDDS_URI, which
/// holds where both say something; may be empty.
std::string configurationOf(const Network& network, const std::string& own);

} // namespace gk::ros2
