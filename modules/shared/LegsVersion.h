#pragma once

namespace GK {

/// Memory key: what the robot's configuration says of its legs, an int.
inline constexpr const char* kLegsVersionKey = "RobotConfig/Body/Device/Legs/Version";
/// Its value on a robot without legs.
inline constexpr int kNoLegs = -1;

} // namespace GK
