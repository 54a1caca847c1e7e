#include "MODULE_NAME.h"

#include "gk/GKBroker.h"
#include "gk/GKModuleLibrary.h"
#include "gk/GKProxy.h"
#include "zu/log.h"
#include "zu/os.h"

#include <cmath>
#include <string>

namespace {

constexpr const char* kEvent = "MODULE_NAMEHeld";
constexpr const char* kTouch = "Device/SubDeviceList/Head/Touch/Front/Sensor/Value";
constexpr const char* kSeconds = "Settings/MODULE_NAME/Seconds";
constexpr unsigned int kPeriod = 100; // ms

} // namespace

MODULE_NAME::MODULE_NAME(const boost::shared_ptr<GK::GKBroker>& broker)
    : GKModule(broker, "MODULE_NAME") {
  setModuleDescription("Notices when a hand rests on the robot's head.");

  functionName("getCount", getName(), "Gets how often a hand has rested on the head.");
  setReturn("count", "Number of times so far.");
  bindMethod(&MODULE_NAME::getCount, static_cast<const MODULE_NAME*>(this));

  functionName("run", getName(), "The module's loop. Not to be called by others.");
  bindMethod(&MODULE_NAME::run, this);
}

void MODULE_NAME::init() {
  fMemory = getParentBroker()->getSpecialisedProxy<GK::GKMemoryProxy>("GKMemory");
  fMemory->declareEvent(kEvent, getName());
  fTouch = GK::GKMemoryPlace<float>(fMemory->getDataPtr(kTouch));
  const float seconds = fMemory->hasKey(kSeconds) ? fMemory->getData(kSeconds).toFloat() : 1.0F;
  fTicksNeeded = static_cast<int>(std::lround(seconds * 1000.0F / kPeriod));
  zu::log::info("MODULE_NAME", "init") << "waits for touches of " << seconds << " s";
  getParentBroker()->getProxy(getName(), 0)->postCall("run");
}

void MODULE_NAME::exit() {
  // The loop ends by itself.
}

int MODULE_NAME::getCount() const {
  return fCount.load();
}

void MODULE_NAME::run() {
  const auto broker = getParentBroker();
  while (!broker->isExiting()) {
    xTick();
    zu::os::msleep(kPeriod);
  }
}

void MODULE_NAME::xTick() {
  fTicks = fTouch.load() > 0.0F ? fTicks + 1 : 0;
  // The first tick of a touch is its beginning.
  if (fTicks == fTicksNeeded + 1) {
    fMemory->raiseEvent(kEvent, ++fCount);
  }
}

GK_MODULE_LIBRARY(MODULE_NAME)
