#pragma once

#include "gk/GKTime.h"

#include <atomic>
#include <cstdint>
#include <string>

namespace gk::gateway {

/// Where what a host shows comes from.
struct RunSource {
  enum class Kind : std::uint8_t { Robot, Simulated, Recording };

  Kind kind = Kind::Robot;
  /// What is played, where that is a recording.
  std::string file;
  /// When its last line was played, in microseconds since the start; negative before. Any thread.
  std::atomic<GK::GKMicros> end{-1};
};

} // namespace gk::gateway
