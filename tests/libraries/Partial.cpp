#include "gk/GKBroker.h"
#include "gk/GKMemoryProxy.h"
#include "gk/GKModule.h"

namespace {

/// Comes up well and says when it goes.
class First : public GK::GKModule {
public:
  explicit First(boost::shared_ptr<GK::GKBroker> broker) : GKModule(std::move(broker), "First") {}

  void init() override { xMemory()->raiseEvent("FirstIsUp", 1); }
  void exit() override { xMemory()->raiseEvent("FirstExits", 1); }

private:
  boost::shared_ptr<GK::GKMemoryProxy> xMemory() const {
    return getParentBroker()->getSpecialisedProxy<GK::GKMemoryProxy>("GKMemory");
  }
};

/// Fails half way up.
class Second : public GK::GKModule {
public:
  explicit Second(boost::shared_ptr<GK::GKBroker> broker) : GKModule(std::move(broker), "Second") {}

  void init() override { throw GK::GKError("Second", "init", "half way"); }
  void exit() override {
    getParentBroker()
        ->getSpecialisedProxy<GK::GKMemoryProxy>("GKMemory")
        ->raiseEvent("SecondExits", 1);
  }
};

} // namespace

extern "C" GK_API int _createModule(boost::shared_ptr<GK::GKBroker> broker) {
  GK::GKModule::createModule<First>(broker);
  GK::GKModule::createModule<Second>(broker);
  return 0;
}
