#pragma once

#include "app/terminal/ProgressLine.h"
#include "gk/GKObserver.h"
#include "runtime/host/Host.h"

namespace gk::app {

/// Draws how far a virtual run has come. Added as an observer; removes itself from the screen when
/// it goes.
class ProgressBar : public GK::GKObserver {
public:
  explicit ProgressBar(const runtime::Host& host) : fHost(host) {}

  void onNotice(const GK::GKNotice&) override {}
  void onTick(GK::GKMicros time, const GK::GKTask& task) override;

private:
  const runtime::Host& fHost;
  ProgressLine fLine;
  unsigned fTicks = 0;
};

} // namespace gk::app
