#include "formats/recording/TimeOrder.h"

#include "messages/text/FormatError.h"
#include "messages/text/Numbers.h"

#include <optional>
#include <string>

namespace gk::formats {

GK::GKMicros TimeOrder::take(double seconds) {
  if (seconds < 0.0) {
    throw messages::FormatError("time " + messages::doubleText(seconds) + " is negative");
  }
  const std::optional<GK::GKMicros> time = messages::toMicros(seconds);
  if (!time) {
    throw messages::FormatError("time " + messages::doubleText(seconds) + " is too large");
  }
  // Compared as it was written: rounding to microseconds hides no step back.
  if (seconds < fLast) {
    throw messages::FormatError("time goes back from " + messages::doubleText(fLast) + " to " +
                                messages::doubleText(seconds));
  }
  fLast = seconds;
  return *time;
}

} // namespace gk::formats
