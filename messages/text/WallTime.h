#pragma once

#include <cstdint>
#include <string>

namespace gk::messages {

/// Microseconds since 1970 as "2026-11-21T12:30:24Z"; as "... us" outside of the years 1970 to
/// 9999.
std::string wallTimeText(std::int64_t micros);

/// Nanoseconds since 1970, `micros` (at least 0) after `epoch` (microseconds since 1970), as
/// recordings and viewers want them: 0 for what comes before, the last microsecond that 64 bits
/// hold for what comes after.
std::uint64_t nanosecondsSince1970(std::int64_t epoch, std::int64_t micros) noexcept;

} // namespace gk::messages
