#pragma once

#include <cstdint>
#include <string>

namespace gk::formats {

/// Microseconds since 1970 as "2026-11-21T12:30:24Z"; as "... us" outside of the years 1970 to 9999.
std::string wallTimeText(std::int64_t micros);

} // namespace gk::formats
