#pragma once

#include <cstdint>
#include <limits>

namespace GK {

/// `value` without its fraction; not a number and what no int can hold become the smallest int.
inline std::int32_t truncate(float value) {
  constexpr float limit = 2147483648.0F; // 2^31, the first float that no int can hold
  return value >= -limit && value < limit ? static_cast<std::int32_t>(value)
                                          : std::numeric_limits<std::int32_t>::min();
}

} // namespace GK
