#include "gk/GKClock.h"
#include "gk/GKTime.h"

namespace GK {

int RTCount::tic(const GKTime& span) {
  const GKMicros now = GKClock::instance().elapsed();
  const bool isBurst = fCount > 0 && now - fLast <= span.toMicros();
  fCount = isBurst ? fCount + 1 : 1;
  fLast = now;
  return fCount;
}

} // namespace GK
