#pragma once

#include "gk/GKClock.h"

#include <cstdint>
#include <string>

namespace gk::messages {

/// Microseconds since 1970 as "2026-11-21T12:30:24Z"; as "... us" outside of the years 1970 to
/// 9999.
std::string wallTimeText(std::int64_t micros);

/// Microseconds since 1970 at time 0 of a clock that shows `wall` when it has run for `elapsed`.
/// Clocks further away from 1970 than 9e12 seconds are taken as if they were not.
std::int64_t epochOf(const GK::GKWallTime& wall, GK::GKMicros elapsed) noexcept;

/// Nanoseconds since 1970, `micros` (at least 0) after `epoch` (microseconds since 1970), as
/// recordings and viewers want them: 0 for what comes before, the last microsecond that 64 bits
/// hold for what comes after.
std::uint64_t nanosecondsSince1970(std::int64_t epoch, std::int64_t micros) noexcept;

} // namespace gk::messages
