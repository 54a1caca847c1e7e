#pragma once

#include "gk/GKApi.h"
#include "gk/GKPriorityMutex.h"

#include <boost/enable_shared_from_this.hpp>
#include <boost/make_shared.hpp>
#include <boost/shared_ptr.hpp>
#include <boost/weak_ptr.hpp>

#include <atomic>
#include <string>
#include <vector>

namespace GK {

class GKBrokerManager;
class GKModuleCore;
class GKProxy;

/// Hosts modules and finds them by name. All operations from any thread unless said otherwise.
class GK_API GKBroker : public boost::enable_shared_from_this<GKBroker> {
public:
  GKBroker(std::string name, const boost::shared_ptr<GKBrokerManager>& manager);
  ~GKBroker();
  GKBroker(const GKBroker&) = delete;
  GKBroker& operator=(const GKBroker&) = delete;

  const std::string& getName() const noexcept { return fName; }
  boost::shared_ptr<GKBroker> getThis() { return shared_from_this(); }

  /// The manager that this broker was created with; expired when that is gone.
  boost::weak_ptr<GKBrokerManager> getBrokerManager() const { return fManager; }

  /// A proxy of the module of this name, for modules. `option` is reserved and 0. Raises `GKError`
  /// when there is no such module.
  boost::shared_ptr<GKProxy> getProxy(const std::string& name, int option);

  /// The same look-up, wrapped in a proxy class made for that module, such as `GKMemoryProxy`.
  template <class P> boost::shared_ptr<P> getSpecialisedProxy(const std::string& name) {
    return boost::make_shared<P>(getProxy(name, 0));
  }

  bool isModulePresent(const std::string& name) const;

  /// The module of this name, or empty. For hosts and services: not a look-up by a module.
  boost::shared_ptr<GKModuleCore> findModule(const std::string& name) const;

  /// All modules in the order of their registration.
  std::vector<boost::shared_ptr<GKModuleCore>> getModules() const;

  /// Takes a module over. Raises `GKError` when the name is taken or the broker is going down.
  void registerModule(const boost::shared_ptr<GKModuleCore>& module);

  /// True from the beginning of the shutdown on.
  bool isExiting() const noexcept { return fExiting.load(std::memory_order_relaxed); }

  /// Ends everything: calls every module's `exit` in reverse order of registration, waits for all
  /// tasks, releases the modules in the same reverse order. Called once, by the host's main thread;
  /// only then may libraries be closed.
  void shutdown();

private:
  std::string fName;
  boost::weak_ptr<GKBrokerManager> fManager;
  std::atomic<bool> fExiting{false};
  mutable GKPriorityMutex fMutex;
  std::vector<boost::shared_ptr<GKModuleCore>> fModules;
};

} // namespace GK
