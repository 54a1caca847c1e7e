#include "gk/GKClock.h"
#include "gk/GKTime.h"

#include <limits>

namespace GK {

int RTCount::tic(const GKTime& span) {
  const GKMicros now = GKClock::instance().elapsed();
  const bool isBurst = fCount > 0 && now - fLast <= span.toMicros();
  if (!isBurst) {
    fCount = 1;
  } else if (fCount < std::numeric_limits<int>::max()) {
    ++fCount;
  }
  fLast = now;
  return fCount;
}

} // namespace GK
