#include "app/ProgressBar.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstdio>

namespace gk::app {

namespace {

/// The computer's clock is asked once in so many ticks.
constexpr unsigned kTicksBetweenLooks = 4096;
constexpr std::chrono::milliseconds kBetweenDrawings{100};
constexpr int kWidth = 40;

} // namespace

ProgressBar::~ProgressBar() {
  if (fIsDrawn) {
    fmt::print(stderr, "\r\x1b[K");
  }
}

void ProgressBar::onTick(GK::GKMicros time, const GK::GKTask&) {
  if (++fTicks % kTicksBetweenLooks != 0) {
    return;
  }
  const Clock::time_point now = Clock::now();
  if (now < fNextDrawing) {
    return;
  }
  fNextDrawing = now + kBetweenDrawings;
  fIsDrawn = true;
  const double progress = std::clamp(fHost.progress(), 0.0, 1.0);
  const int filled = static_cast<int>(progress * kWidth);
  fmt::print(stderr, "\r[{:=<{}}{:{}}] {:3.0f} %  {} s", "", filled, "", kWidth - filled,
             progress * 100, time / 1000000);
  std::fflush(stderr);
}

} // namespace gk::app
