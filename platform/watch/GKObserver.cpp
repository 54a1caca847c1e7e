#include "gk/GKObserver.h"

#include "gk/GKClock.h"

#include <algorithm>

namespace GK {

GKObserver::~GKObserver() = default;

void GKObserver::onTick(GKMicros, const GKTask&) {}

void GKObserver::onTickTimes(const GKTickTimes&, const GKTask&) {}

GKObserverList& GKObserverList::instance() {
  static GKObserverList list;
  return list;
}

void GKObserverList::add(boost::shared_ptr<GKObserver> observer) {
  const std::lock_guard lock(fMutex);
  fObservers.push_back(std::move(observer));
  fCount.store(fObservers.size(), std::memory_order_relaxed);
}

void GKObserverList::remove(const boost::shared_ptr<GKObserver>& observer) {
  const std::lock_guard lock(fMutex);
  fObservers.erase(std::remove(fObservers.begin(), fObservers.end(), observer), fObservers.end());
  fCount.store(fObservers.size(), std::memory_order_relaxed);
}

GKMicros GKObserverList::notify(GKNotice notice) {
  const std::lock_guard lock(fMutex);
  notice.time = GKClock::instance().elapsed();
  for (const auto& observer : fObservers) {
    observer->onNotice(notice);
  }
  return notice.time;
}

void GKObserverList::notifyTick(const GKTask& task, const GKTickTimes* times) {
  // The time of the tick's end, whatever other threads show to the observers before.
  GKTickTimes stamped;
  if (times != nullptr) {
    stamped = *times;
    stamped.end = GKClock::instance().measured();
  }
  const std::lock_guard lock(fMutex);
  const GKMicros now = GKClock::instance().elapsed();
  for (const auto& observer : fObservers) {
    observer->onTick(now, task);
    if (times != nullptr) {
      observer->onTickTimes(stamped, task);
    }
  }
}

} // namespace GK
