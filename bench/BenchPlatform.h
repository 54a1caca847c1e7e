#pragma once

#include "devices/DeviceLayer.h"
#include "gk/DCM.h"
#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKClock.h"
#include "gk/GKMemory.h"
#include "gk/GKResourceManager.h"
#include "zu/log.h"

#include <boost/make_shared.hpp>

#include <memory>

namespace gk::bench {

/// Services and device layer on the virtual clock, without a host's observers.
class BenchPlatform {
public:
  BenchPlatform() {
    GK::GKClock::install(GK::makeVirtualClock(0));
    zu::log::setConsoleLevel(0);
    GK::GKBrokerManager::setInstance(manager);
    manager->addBroker(broker);
    devices::DeviceLayer(store).publish();
    memory->initModule();
    boost::make_shared<GK::DCM>(broker, store)->initModule();
    boost::make_shared<GK::GKResourceManager>(broker, store)->initModule();
  }
  ~BenchPlatform() {
    broker->shutdown();
    GK::GKBrokerManager::setInstance({});
    GK::GKClock::install(nullptr);
  }
  BenchPlatform(const BenchPlatform&) = delete;
  BenchPlatform& operator=(const BenchPlatform&) = delete;

  std::shared_ptr<GK::GKMemoryStore> store = std::make_shared<GK::GKMemoryStore>();
  boost::shared_ptr<GK::GKBrokerManager> manager = boost::make_shared<GK::GKBrokerManager>();
  boost::shared_ptr<GK::GKBroker> broker = boost::make_shared<GK::GKBroker>("bench", manager);
  boost::shared_ptr<GK::GKMemory> memory = boost::make_shared<GK::GKMemory>(broker, store);
};

} // namespace gk::bench
