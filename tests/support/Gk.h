#pragma once

#include "support/Program.h"

#include <string>
#include <utility>
#include <vector>

namespace gk::test {

/// Where the recordings are that come with the project.
inline const std::string kData = GK_SOURCE_DIR "/data/";

/// A key of the device layer that clients like to read and write.
inline const std::string kTouch = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value";

/// Runs the gk program of this build to its end.
inline ProgramResult runGk(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), GK_PROGRAM);
  return runProgram(std::move(arguments));
}

} // namespace gk::test
