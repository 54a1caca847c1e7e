#include "gk/GKExtractor.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModuleLibrary.h"

#include <string>

// Raises "Echo" with the value of the setting when it gets an event of the sonar, to which it
// subscribes when nobody has declared it yet.

namespace {

class Echo : public GK::GKModule {
public:
  explicit Echo(const boost::shared_ptr<GK::GKBroker>& broker) : GKModule(broker, "Echo") {
    functionName("onEvent", getName(), "Answers an event.");
    addParam("event", "Name of the event.");
    addParam("value", "Its value.");
    bindMethod(&Echo::onEvent, this);
  }

  void init() override {
    fMemory = getParentBroker()->getSpecialisedProxy<GK::GKMemoryProxy>("GKMemory");
    fMemory->subscribeToEvent("SonarLeftDetected", getName(), "onEvent");
  }

  void onEvent(const std::string&, const GK::GKValue&) {
    const std::string key = "Settings/Echo/Value";
    fMemory->raiseEvent("Echo", fMemory->hasKey(key) ? fMemory->getData(key) : GK::GKValue());
  }

private:
  boost::shared_ptr<GK::GKMemoryProxy> fMemory;
};

} // namespace

GK_MODULE_LIBRARY(Echo)
