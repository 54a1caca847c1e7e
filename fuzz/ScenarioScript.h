#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>

namespace gk::fuzz {

/// A scenario made of arbitrary bytes.
struct ScenarioScript {
  /// Lines that are well formed whatever the bytes are.
  std::string text;
  /// True when it makes operations of the platform fail.
  bool hasFaults = false;
};

/// Reads `bytes` as a row of small instructions: keys and values to set, steps of time, calls to
/// the modules, faults. At most half a minute of the robot's time comes out.
ScenarioScript writeScenario(std::span<const std::uint8_t> bytes);

} // namespace gk::fuzz
