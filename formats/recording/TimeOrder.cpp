#include "formats/recording/TimeOrder.h"

#include "formats/text/FormatError.h"
#include "formats/text/Numbers.h"

#include <optional>
#include <string>

namespace gk::formats {

GK::GKMicros TimeOrder::take(double seconds) {
  if (seconds < 0.0) {
    throw FormatError("time " + doubleText(seconds) + " is negative");
  }
  const std::optional<GK::GKMicros> time = toMicros(seconds);
  if (!time) {
    throw FormatError("time " + doubleText(seconds) + " is too large");
  }
  // Compared as it was written: rounding to microseconds hides no step back.
  if (seconds < fLast) {
    throw FormatError("time goes back from " + doubleText(fLast) + " to " + doubleText(seconds));
  }
  fLast = seconds;
  return *time;
}

} // namespace gk::formats
