#include "app/run/Ros2Options.h"

#include "messages/ros/Mapper.h"

#include <net/if.h>
#include <stdexcept>

namespace gk::app {

namespace {

constexpr const char* kNamespaceKey = "Settings/GKRos2/Namespace";
constexpr const char* kInterfaceKey = "Settings/GKRos2/Interface";

/// What is wrong with a --ros-namespace; empty for nothing.
std::string checkNamespace(const std::string& text) {
  try {
    messages::ros::namespaceOf(text);
    return {};
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
}

/// What is wrong with a --ros-interface; empty for nothing.
std::string checkInterface(const std::string& name) {
  return ::if_nametoindex(name.c_str()) != 0 ? std::string()
                                             : "this machine has no network interface " + name;
}

} // namespace

void addRos2Options(const Command& command, Ros2Options& options) {
  command.section("ROS 2");
  const Option ros2 = command.flag(
      "--ros2", options.isOn,
      "Let programs of ROS 2 on this machine see the robot, in the domain of ROS_DOMAIN_ID");
  command
      .option("--ros-namespace", options.nameSpace,
              "With --ros2: what stands before the names of topics, such as lab/robot1")
      .checked(checkNamespace)
      .shows("NAME")
      .needs(ros2);
  command
      .option("--ros-interface", options.interface,
              "With --ros2: for all on the network of this interface, who need no permission")
      .checked(checkInterface)
      .shows("NAME")
      .needs(ros2);
}

void applyRos2Settings(const Ros2Options& options, runtime::HostOptions& host) {
  if (!options.nameSpace.empty()) {
    host.settings.emplace_back(kNamespaceKey, options.nameSpace);
  }
  if (!options.interface.empty()) {
    host.settings.emplace_back(kInterfaceKey, options.interface);
  }
}

const ListeningLibrary& ros2Library() {
  static const ListeningLibrary library{"--ros2", "gkros2", "gksensors-ros2"};
  return library;
}

} // namespace gk::app
