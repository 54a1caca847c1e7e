#include "gk/GKBroker.h"

#include "gk/GKBrokerManager.h"
#include "gk/GKClock.h"
#include "gk/GKError.h"
#include "gk/GKModule.h"
#include "gk/GKOperationHook.h"
#include "gk/GKProxy.h"
#include "zu/log.h"

#include <algorithm>
#include <exception>

namespace GK {

GKBroker::GKBroker(std::string name, const boost::shared_ptr<GKBrokerManager>& manager)
    : fName(std::move(name)), fManager(manager) {}

GKBroker::~GKBroker() = default;

boost::shared_ptr<GKProxy> GKBroker::getProxy(const std::string& name, int) {
  GKOperationHook::check(GKOperation::GetProxy, name);
  boost::shared_ptr<GKModuleCore> module = findModule(name);
  if (module == nullptr) {
    throw GKError("GKBroker", "getProxy", "there is no module " + name);
  }
  return boost::make_shared<GKProxy>(std::move(module));
}

bool GKBroker::isModulePresent(const std::string& name) const {
  return findModule(name) != nullptr;
}

boost::shared_ptr<GKModuleCore> GKBroker::findModule(const std::string& name) const {
  const std::lock_guard lock(fMutex);
  for (const auto& module : fModules) {
    if (module->getName() == name) {
      return module;
    }
  }
  return nullptr;
}

std::vector<boost::shared_ptr<GKModuleCore>> GKBroker::getModules() const {
  const std::lock_guard lock(fMutex);
  return fModules;
}

void GKBroker::registerModule(const boost::shared_ptr<GKModuleCore>& module) {
  const std::lock_guard lock(fMutex);
  if (isExiting()) {
    throw GKError("GKBroker", "registerModule", module->getName() + ": the broker is going down");
  }
  for (const auto& known : fModules) {
    if (known->getName() == module->getName()) {
      throw GKError("GKBroker", "registerModule",
                    "there is a module " + module->getName() + " already");
    }
  }
  fModules.push_back(module);
}

namespace {

/// Ends one module; what its `exit` raises must not keep the others from ending.
void exitModule(const std::string& name, const std::function<void()>& exit) {
  const auto complain = [&name](const char* why) {
    zu::log::error("platform.broker", "shutdown") << name << ".exit: " << why;
  };
  try {
    exit();
  } catch (const std::exception& error) {
    complain(error.what());
  } catch (...) {
    complain("unknown exception");
  }
}

} // namespace

void GKBroker::shutdown() {
  {
    const std::lock_guard lock(fMutex);
    fExiting.store(true, std::memory_order_relaxed);
  }
  // The latest first.
  std::vector<boost::shared_ptr<GKModuleCore>> modules = getModules();
  std::reverse(modules.begin(), modules.end());
  for (const auto& module : modules) {
    if (const auto full = boost::dynamic_pointer_cast<GKModule>(module)) {
      exitModule(full->getName(), [&full] { full->xExitOnce(); });
    }
  }
  GKClock::instance().joinTasks();
  {
    const std::lock_guard lock(fMutex);
    fModules.clear();
  }
  for (auto& module : modules) {
    module.reset();
  }
}

} // namespace GK
