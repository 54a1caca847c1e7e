#pragma once

#include "extensions/ros2/Graph.h"
#include "extensions/ros2/Network.h"
#include "gk/GKMemoryProxy.h"

#include <string>

namespace gk::ros2 {

/// What the module is set to, by memory keys "Settings/GKRos2/..." and the environment.
struct Settings {
  /// "" or with "/" before every part.
  std::string space;
  /// Most samples of a topic a second.
  double rate = 50.0;
  bool isTf = true;
  GraphFormat graph;
  Network network;
  /// The user's own configuration of Cyclone DDS.
  std::string configuration;
};

/// Raises std::invalid_argument with one line that names what is wrong.
Settings readSettings(const GK::GKMemoryProxy& memory, const Environment& environment);

} // namespace gk::ros2
