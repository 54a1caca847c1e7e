#pragma once

#include "app/options/Command.h"
#include "app/run/ListeningLibrary.h"
#include "runtime/host/Host.h"

#include <string>

namespace gk::app {

/// Whether and how a run is seen by ROS 2, as it stands on the command line.
struct Ros2Options {
  bool isOn = false;
  std::string nameSpace;
  std::string interface;
};

void addRos2Options(const Command& command, Ros2Options& options);

/// Settings for the module that publishes.
void applyRos2Settings(const Ros2Options& options, runtime::HostOptions& host);

/// The module's library.
const ListeningLibrary& ros2Library();

} // namespace gk::app
