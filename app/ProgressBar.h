#pragma once

#include "gk/GKObserver.h"
#include "runtime/Host.h"

#include <chrono>

namespace gk::app {

/// Draws how far a virtual run has come, on standard error, once it has taken a while. Added as an
/// observer; removes itself from the screen when it goes.
class ProgressBar : public GK::GKObserver {
public:
  explicit ProgressBar(const runtime::Host& host) : fHost(host) {}
  ~ProgressBar() override;

  void onNotice(const GK::GKNotice&) override {}
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;

private:
  using Clock = std::chrono::steady_clock;

  const runtime::Host& fHost;
  Clock::time_point fNextDrawing = Clock::now() + std::chrono::milliseconds(500);
  unsigned fTicks = 0;
  bool fIsDrawn = false;
};

} // namespace gk::app
