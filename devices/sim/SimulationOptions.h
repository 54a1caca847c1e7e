#pragma once

#include <cstdint>

namespace gk::devices {

/// What may differ between two simulated robots.
struct SimulationOptions {
  /// Where the sensors' errors begin.
  std::uint64_t seed = 1;
  /// Sensors have errors.
  bool isNoisy = true;
};

} // namespace gk::devices
