#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKModule.h"
#include "modules/battery/GKBattery.h"
#include "modules/fsr/GKFsr.h"
#include "modules/robotpose/GKRobotPose.h"
#include "modules/sensors/GKSensors.h"
#include "modules/sonar/GKSonar.h"

#include <boost/shared_ptr.hpp>

/// Creates the five modules inside `broker`, which owns them from then on. Called once per load, on
/// the host's loading thread. Returns 0. When a module cannot be created its exception leaves from
/// here: the modules created before it stay, those after it are not created.
// NOLINTNEXTLINE(performance-unnecessary-value-param): hosts call it with this signature
extern "C" GK_API int _createModule(boost::shared_ptr<GK::GKBroker> broker) {
  // The host's manager becomes the one that this library sees; none at all when it is gone.
  GK::GKBrokerManager::setInstance(broker->getBrokerManager().lock());
  GK::GKBrokerManager::getInstance()->addBroker(broker);

  GK::GKModule::createModule<GK::GKSonar>(broker);
  GK::GKModule::createModule<GK::GKFsr>(broker);
  GK::GKModule::createModule<GK::GKRobotPose>(broker);
  GK::GKModule::createModule<GK::GKBattery>(broker);
  // Last, since its loop drives the other four.
  GK::GKModule::createModule<GK::GKSensors>(broker);
  return 0;
}

/// Counterpart of `_createModule`. Does nothing, since the broker ends the modules. Returns 0.
extern "C" GK_API int _closeModule() {
  return 0;
}
