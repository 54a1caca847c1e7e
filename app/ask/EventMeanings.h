#pragma once

#include <string_view>

namespace gk::app {

/// What a value of an event, or of a key that modules write, says.
struct Meaning {
  std::string_view name;
  /// "m", "kg", "%"; empty for pure numbers, names and flags.
  std::string_view unit;
  std::string_view text;
};

/// The meaning of what our modules tell under this name; null for what others tell.
const Meaning* meaningOf(std::string_view name);

} // namespace gk::app
