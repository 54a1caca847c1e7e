#pragma once

#include "runtime/host/Host.h"

#include <string>

namespace gk::app {

/// A module library that tells others of the robot, and which an option of `gk run` loads.
struct ListeningLibrary {
  /// "--ros2"
  std::string option;
  /// As for --library.
  std::string name;
  /// The package that it comes with.
  std::string package;
  /// Before all others: it hears what they raise in their start and end.
  bool isFirst = false;
};

/// Why such a library is of no use to this run; empty when it is.
std::string whyNoListener(const ListeningLibrary& library, const runtime::HostOptions& host,
                          bool isLockstep);

/// Has the run load it, if it does not anyway. Raises `LoadError`, which names option and package,
/// when it is not installed.
void addListener(const ListeningLibrary& library, runtime::HostOptions& host);

} // namespace gk::app
