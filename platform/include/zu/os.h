#pragma once

#include "gk/GKApi.h"

#include <cstdint>

namespace zu::os {

/// Seconds and microseconds since 1970-01-01T00:00:00 UTC, by the platform's clock.
struct timeval {
  std::int64_t tv_sec = 0;
  std::int64_t tv_usec = 0;
};

/// Suspends the calling thread for `milliseconds`; for a module's loop this ends a tick.
GK_API void msleep(unsigned int milliseconds);

/// Stores the present wall time. Always returns 0.
GK_API int gettimeofday(timeval* now);

} // namespace zu::os
