#include "gk/GKClock.h"

#include <atomic>

namespace GK {

namespace {

struct Installed {
  std::shared_ptr<GKClock> owner = makeRealClock();
  std::atomic<GKClock*> clock{owner.get()};
};

Installed& installed() {
  static Installed instance;
  return instance;
}

} // namespace

GKClock::~GKClock() = default;

GKClock& GKClock::instance() {
  return *installed().clock.load(std::memory_order_acquire);
}

void GKClock::install(std::shared_ptr<GKClock> clock) {
  if (clock == nullptr) {
    clock = makeRealClock();
  }
  installed().clock.store(clock.get(), std::memory_order_release);
  installed().owner = std::move(clock);
}

} // namespace GK
