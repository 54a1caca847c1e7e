#include "app/session/ProgressBar.h"

#include <string>

namespace gk::app {

namespace {

/// The computer's clock is asked once in so many ticks.
constexpr unsigned kTicksBetweenLooks = 4096;

} // namespace

void ProgressBar::onTick(GK::GKMicros time, const GK::GKTask&) {
  if (++fTicks % kTicksBetweenLooks == 0 && fLine.isDue()) {
    fLine.show(fHost.progress(), std::to_string(time / 1000000) + " s");
  }
}

} // namespace gk::app
