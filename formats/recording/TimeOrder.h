#pragma once

#include "gk/GKTime.h"

namespace gk::formats {

/// Checks the times of a recording's lines, one after the other.
class TimeOrder {
public:
  /// `seconds` in microseconds. Raises `FormatError` for a time that is not finite, negative, too
  /// large or before the one taken last.
  GK::GKMicros take(double seconds);

private:
  double fLast = 0.0;
};

} // namespace gk::formats
