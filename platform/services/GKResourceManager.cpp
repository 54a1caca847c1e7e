#include "gk/GKResourceManager.h"

#include "gk/GKCaller.h"
#include "gk/GKObserver.h"
#include "gk/GKOperationHook.h"

namespace GK {

namespace {

constexpr const char* kStatePrefix = "ResourceManager/State/";

} // namespace

GKResourceManager::GKResourceManager(const boost::shared_ptr<GKBroker>& broker,
                                     std::shared_ptr<GKMemoryStore> store)
    : GKModule(broker, kName), fStore(std::move(store)) {
  setModuleDescription("Keeps which states the robot is in.");

  functionName("enableStateResource", kName, "Says whether the robot is in a state.");
  addParam("name", "Name of the state.");
  addParam("enabled", "True when the robot is in it.");
  bindMethod(&GKResourceManager::enableStateResource, this);

  functionName("getEnabledStateResources", kName, "Gets the states that the robot is in.");
  setReturn("names", "Names in alphabetical order.");
  bindMethod(&GKResourceManager::getEnabledStateResources,
             static_cast<const GKResourceManager*>(this));
}

void GKResourceManager::enableStateResource(const std::string& name, const bool& enabled) {
  if (GKCallerScope::current() == GKCaller::Module) {
    GKOperationHook::check(GKOperation::EnableStateResource, {});
  }
  const std::string key = kStatePrefix + name;
  xAdmit(key, enabled);
  const std::lock_guard lock(fMutex);
  if (enabled) {
    fEnabled.insert(name);
  } else {
    fEnabled.erase(name);
  }
  fStore->set(key, enabled);
  GKObserverList::instance().show(GKNotice::Kind::Resource, [&](GKNotice& notice) {
    notice.name = name;
    notice.value = enabled;
  });
}

void GKResourceManager::xAdmit(const std::string& key, const GKValue& value) const {
  const GKCaller caller = GKCallerScope::current();
  const bool isNew = fGate != nullptr && caller != GKCaller::Module && fStore->find(key) == nullptr;
  GKValue room;
  GKWriteGate::ask(fGate, kName, "enableStateResource",
                   {GKWrite::Kind::Resource, caller, key, &value, {}, isNew}, room);
}

std::vector<std::string> GKResourceManager::getEnabledStateResources() const {
  const std::lock_guard lock(fMutex);
  return {fEnabled.begin(), fEnabled.end()};
}

} // namespace GK
