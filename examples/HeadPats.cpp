#include "gk/GKBroker.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModuleLibrary.h"

#include <atomic>
#include <string>

/// Counts how often somebody has patted the robot's head, and tells so by the event "HeadPatted".
class HeadPats : public GK::GKModule {
public:
  explicit HeadPats(const boost::shared_ptr<GK::GKBroker>& broker) : GKModule(broker, "HeadPats") {
    setModuleDescription("Counts pats on the robot's head.");

    functionName("getCount", getName(), "Gets the number of pats so far.");
    setReturn("count", "Number of pats.");
    bindMethod(&HeadPats::getCount, static_cast<const HeadPats*>(this));

    functionName("onTouched", getName(), "Takes the event FrontTactilTouched.");
    addParam("event", "Name of the event.");
    addParam("value", "1.0: touched, 0.0: let go.");
    bindMethod(&HeadPats::onTouched, this);
  }

  /// Called once, when the module can be found by its name.
  void init() override {
    fMemory = getParentBroker()->getSpecialisedProxy<GK::GKMemoryProxy>("GKMemory");
    fMemory->declareEvent("HeadPatted", getName());
    fMemory->subscribeToEvent("FrontTactilTouched", getName(), "onTouched");
  }

  /// Called once at the end, while all other modules still stand.
  void exit() override { fMemory->unsubscribeToEvent("FrontTactilTouched", getName()); }

  int getCount() const { return fCount.load(); }

  void onTouched(const std::string&, const GK::GKValue& value) {
    if (value.toFloat() > 0.0F) {
      fMemory->raiseEvent("HeadPatted", fCount.fetch_add(1) + 1);
    }
  }

private:
  boost::shared_ptr<GK::GKMemoryProxy> fMemory;
  /// Events and calls come on threads of their own.
  std::atomic<int> fCount{0};
};

GK_MODULE_LIBRARY(HeadPats)
