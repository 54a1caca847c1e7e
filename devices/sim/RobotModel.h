#pragma once

namespace gk::devices {

/// `robot.xml`, put into the program when it is built.
extern const char* const kRobotModel;

} // namespace gk::devices
