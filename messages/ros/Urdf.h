#pragma once

#include <string>

namespace gk::messages::ros {

/// The robot's model in the Unified Robot Description Format. Made once; from any thread.
const std::string& robotUrdf();

} // namespace gk::messages::ros
