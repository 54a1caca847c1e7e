#pragma once

#include "gk/GKMemoryPlace.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"

#include <atomic>

/// Notices when a hand rests on the robot's head, and raises "MODULE_NAMEHeld" with the number of
/// times so far.
///
/// Setting "MODULE_NAME/Seconds": for how long the hand has to rest there, 1 when absent.
class MODULE_NAME : public GK::GKModule {
public:
  explicit MODULE_NAME(const boost::shared_ptr<GK::GKBroker>& broker);

  /// Called once, when the module can be found by its name.
  void init() override;
  /// Called once at the end, while all other modules still stand.
  void exit() override;

  /// Number of times so far. Any thread.
  int getCount() const;

  /// The module's loop: looks every 100 ms, until the end.
  void run();

private:
  void xTick();

  boost::shared_ptr<GK::GKMemoryProxy> fMemory;
  /// The sensor's value, to be read without looking it up each time.
  GK::GKMemoryPlace<float> fTouch;
  /// Ticks that a touch has to last, and has lasted so far.
  int fTicksNeeded = 0;
  int fTicks = 0;
  /// Read by callers, on threads of their own.
  std::atomic<int> fCount{0};
};
