#include "gk/GKMemoryProxy.h"

#include "gk/GKCaller.h"

namespace GK {

GKMemoryProxy::GKMemoryProxy(const boost::shared_ptr<GKProxy>& proxy)
    : fMemory(boost::dynamic_pointer_cast<GKMemory>(proxy->getModule())) {
  if (fMemory == nullptr) {
    throw GKError("GKMemoryProxy", "GKMemoryProxy", "the module is not the memory service");
  }
}

bool GKMemoryProxy::hasKey(const std::string& key) const {
  return fMemory->hasKey(key);
}

GKValue GKMemoryProxy::getData(const std::string& key) const {
  return fMemory->getData(key, GKCaller::Module);
}

void* GKMemoryProxy::getDataPtr(const std::string& key) const {
  return fMemory->getDataPtr(key, GKCaller::Module);
}

void GKMemoryProxy::insertData(const std::string& key, const GKValue& value) {
  fMemory->insertData(key, value, GKCaller::Module);
}

void GKMemoryProxy::declareEvent(const std::string& event, const std::string& owner) {
  fMemory->declareEvent(event, owner, GKCaller::Module);
}

void GKMemoryProxy::raiseEvent(const std::string& event, const GKValue& value) {
  fMemory->raiseEvent(event, value, GKCaller::Module);
}

void GKMemoryProxy::raiseMicroEvent(const std::string& event, const GKValue& value) {
  fMemory->raiseMicroEvent(event, value, GKCaller::Module);
}

void GKMemoryProxy::subscribeToEvent(const std::string& event, const std::string& module,
                                     const std::string& method) {
  const GKCallerScope scope(GKCaller::Module);
  fMemory->subscribeToEvent(event, module, method);
}

void GKMemoryProxy::unsubscribeToEvent(const std::string& event, const std::string& module) {
  const GKCallerScope scope(GKCaller::Module);
  fMemory->unsubscribeToEvent(event, module);
}

std::vector<std::string> GKMemoryProxy::getExtractorEvent(const std::string& owner) const {
  return fMemory->getExtractorEvent(owner);
}

std::vector<std::string> GKMemoryProxy::getDataList(const std::string& pattern) const {
  return fMemory->getDataList(pattern);
}

} // namespace GK
