#include "gk/GKBrokerManager.h"

#include "gk/GKBroker.h"
#include "gk/GKError.h"

#include <algorithm>

namespace GK {

namespace {

struct Singleton {
  std::mutex mutex;
  boost::shared_ptr<GKBrokerManager> manager;
};

Singleton& singleton() {
  static Singleton instance;
  return instance;
}

} // namespace

boost::shared_ptr<GKBrokerManager>
GKBrokerManager::setInstance(boost::shared_ptr<GKBrokerManager> manager) {
  const std::lock_guard lock(singleton().mutex);
  singleton().manager.swap(manager);
  return manager;
}

boost::shared_ptr<GKBrokerManager> GKBrokerManager::getInstance() {
  const std::lock_guard lock(singleton().mutex);
  if (singleton().manager == nullptr) {
    singleton().manager = boost::make_shared<GKBrokerManager>();
  }
  return singleton().manager;
}

void GKBrokerManager::addBroker(const boost::shared_ptr<GKBroker>& broker) {
  const std::lock_guard lock(fMutex);
  const bool isKnown = std::any_of(fBrokers.begin(), fBrokers.end(),
                                   [&broker](const auto& known) { return known.lock() == broker; });
  if (!isKnown) {
    fBrokers.push_back(broker);
  }
}

boost::shared_ptr<GKBroker> GKBrokerManager::getRandomBroker() const {
  const std::lock_guard lock(fMutex);
  for (const auto& known : fBrokers) {
    if (boost::shared_ptr<GKBroker> broker = known.lock()) {
      return broker;
    }
  }
  throw GKError("GKBrokerManager", "getRandomBroker", "there is no broker");
}

} // namespace GK
