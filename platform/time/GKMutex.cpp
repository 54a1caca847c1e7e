#include "gk/GKMutex.h"

#include "gk/GKClock.h"

#include <boost/make_shared.hpp>

namespace GK {

boost::shared_ptr<GKMutex> GKMutex::createGKMutex() {
  return boost::make_shared<GKMutex>();
}

void GKMutex::lock() {
  if (!fMutex.try_lock()) {
    GKClock::instance().waitFor(*this);
  }
}

void GKMutex::unlock() {
  fMutex.unlock();
  if (fWaiting.load(std::memory_order_relaxed) != 0) {
    GKClock::instance().freed(*this);
  }
}

} // namespace GK
