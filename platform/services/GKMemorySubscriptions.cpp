#include "gk/GKBroker.h"
#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "gk/GKMemory.h"
#include "platform/services/GKMemoryState.h"
#include "zu/log.h"

#include <algorithm>
#include <exception>
#include <mutex>

// Who gets which event, and who is subscribed to which extractor for it.

namespace GK {

namespace {

/// The number of arguments of an event callback: name and value.
constexpr std::size_t kCallbackArguments = 2;

/// The module if it is an extractor, that is, if others can subscribe to it by name; else empty.
boost::shared_ptr<GKModuleCore> findExtractor(const GKModuleCore& service,
                                              const std::string& name) {
  const boost::shared_ptr<GKBroker> broker = service.getParentBroker();
  boost::shared_ptr<GKModuleCore> module =
      broker != nullptr && !name.empty() ? broker->findModule(name) : nullptr;
  return module != nullptr && module->findMethod("subscribe", 1) != nullptr ? module : nullptr;
}

void callExtractor(GKModuleCore& extractor, const char* method, const std::string& subscriber) {
  const GKCallerScope scope(GKCaller::Platform);
  extractor.callMethod(method, {subscriber});
}

/// The same in a task of its own, for callers who have not asked for it: errors are logged.
void postToExtractor(const boost::shared_ptr<GKModuleCore>& extractor, const char* method,
                     const std::function<void()>& call) {
  const auto work = [name = extractor->getName(), method, call] {
    const auto complain = [&](const char* why) {
      zu::log::error("platform.proxy", "declareEvent") << name << "." << method << ": " << why;
    };
    try {
      call();
    } catch (const std::exception& error) {
      complain(error.what());
    } catch (...) {
      complain("unknown exception");
    }
  };
  GKClock::instance().post({extractor->getName(), method}, work);
}

} // namespace

void GKMemory::declareEvent(const std::string& event, const std::string& owner, GKCaller caller) {
  xCheck(caller, GKOperation::DeclareEvent, event);
  GKValue none;
  xAdmit("declareEvent", {GKWrite::Kind::Declaration, caller, event, nullptr, owner}, none);
  GKMemoryState::Event& entry = fState->event(*fStore, event);
  std::vector<std::string> waiting;
  std::vector<std::string> abandoning;
  std::string formerOwner;
  {
    const std::scoped_lock lock(fState->mutex, entry.mutex);
    formerOwner = entry.owner;
    if (caller != GKCaller::Module && !formerOwner.empty() && formerOwner != owner) {
      throw GKError(kName, "declareEvent", event + " is declared by " + formerOwner);
    }
    if (formerOwner != owner) {
      if (!formerOwner.empty()) {
        std::erase(fState->declared[formerOwner], event);
      }
      fState->declared[owner].push_back(event);
      entry.owner = owner;
    }
    for (const GKMemoryState::Subscription& subscription : entry.subscriptions) {
      if (formerOwner != owner && xEndUse(formerOwner, subscription.module, event)) {
        abandoning.push_back(subscription.module);
      }
      GKMemoryState::Use& use = fState->uses[{owner, subscription.module}];
      use.events.insert(event);
      if (!use.isSubscribed) {
        waiting.push_back(subscription.module);
      }
    }
  }
  GKObserverList::instance().show(GKNotice::Kind::Declare, [&](GKNotice& notice) {
    notice.caller = caller;
    notice.name = event;
    notice.owner = owner;
  });
  for (const std::string& module : abandoning) {
    if (const auto extractor = findExtractor(*this, formerOwner)) {
      postToExtractor(extractor, "unsubscribe",
                      [extractor, module] { callExtractor(*extractor, "unsubscribe", module); });
    }
  }
  for (const std::string& module : waiting) {
    xSubscribeLater(owner, module);
  }
}

void GKMemory::xSubscribeLater(const std::string& owner, const std::string& module) {
  const boost::shared_ptr<GKModuleCore> extractor = findExtractor(*this, owner);
  if (extractor == nullptr) {
    return;
  }
  const auto self = boost::dynamic_pointer_cast<GKMemory>(shared_from_this());
  // The extractor does not own itself while it waits for its own initialisation.
  const boost::weak_ptr<GKModuleCore> weak = extractor;
  extractor->whenInitialised([self, weak, module] {
    if (const boost::shared_ptr<GKModuleCore> ready = weak.lock()) {
      postToExtractor(ready, "subscribe",
                      [self, ready, module] { self->xSubscribeTo(*ready, module); });
    }
  });
}

void GKMemory::xSubscribeTo(GKModuleCore& extractor, const std::string& module) {
  const std::pair<std::string, std::string> key(extractor.getName(), module);
  {
    const std::lock_guard lock(fState->mutex);
    const auto use = fState->uses.find(key);
    // Another event, or another call, may have been quicker; or nobody wants it any more.
    if (use == fState->uses.end() || std::exchange(use->second.isSubscribed, true)) {
      return;
    }
  }
  try {
    callExtractor(extractor, "subscribe", module);
  } catch (...) {
    // The next subscription tries again.
    const std::lock_guard lock(fState->mutex);
    const auto use = fState->uses.find(key);
    if (use != fState->uses.end()) {
      use->second.isSubscribed = false;
    }
    throw;
  }
}

void GKMemory::subscribeToEvent(const std::string& event, const std::string& module,
                                const std::string& method) {
  const boost::shared_ptr<GKBroker> broker = getParentBroker();
  const boost::shared_ptr<GKModuleCore> target =
      broker != nullptr ? broker->findModule(module) : nullptr;
  if (target == nullptr) {
    throw GKError(kName, "subscribeToEvent", "there is no module " + module);
  }
  if (target->findMethod(method, kCallbackArguments) == nullptr) {
    throw GKError(kName, "subscribeToEvent",
                  module + " has no method " + method + " that takes an event's name and value");
  }
  GKValue none;
  xAdmit("subscribeToEvent",
         {GKWrite::Kind::Subscription, GKCallerScope::current(), event, nullptr, module}, none);
  GKMemoryState::Event& entry = fState->event(*fStore, event);
  bool isNew = false;
  std::string owner;
  {
    const std::scoped_lock lock(fState->mutex, entry.mutex);
    std::shared_ptr<GKDelivery>& delivery = fState->deliveries[module];
    if (delivery == nullptr) {
      delivery = std::make_shared<GKDelivery>(target);
    }
    GKDelivery::Callback& callback = delivery->callback(event, method);
    const auto known = std::find_if(
        entry.subscriptions.begin(), entry.subscriptions.end(),
        [&module](const GKMemoryState::Subscription& one) { return one.module == module; });
    isNew = known == entry.subscriptions.end();
    if (isNew) {
      entry.subscriptions.push_back({module, delivery, &callback});
    } else {
      known->callback = &callback;
    }
    owner = entry.owner;
    if (!owner.empty()) {
      fState->uses[{owner, module}].events.insert(event);
    }
  }
  const boost::shared_ptr<GKModuleCore> extractor = findExtractor(*this, owner);
  if (extractor == nullptr) {
    return; // `declareEvent` sees to it
  }
  if (extractor->isInitialising()) {
    xSubscribeLater(owner, module);
    return;
  }
  // Outside of the locks: an extractor may take its time to start.
  try {
    xSubscribeTo(*extractor, module);
  } catch (...) {
    if (isNew) {
      unsubscribeToEvent(event, module);
    }
    throw;
  }
}

void GKMemory::unsubscribeToEvent(const std::string& event, const std::string& module) {
  GKMemoryState::Subscription ended;
  std::string abandoned;
  if (GKMemoryState::Event* known = fState->events.find(event)) {
    const std::scoped_lock lock(fState->mutex, known->mutex);
    const auto found = std::find_if(
        known->subscriptions.begin(), known->subscriptions.end(),
        [&module](const GKMemoryState::Subscription& one) { return one.module == module; });
    if (found != known->subscriptions.end()) {
      ended = *found;
      known->subscriptions.erase(found);
      if (xEndUse(known->owner, module, event)) {
        abandoned = known->owner;
      }
    }
  }
  if (ended.delivery == nullptr) {
    throw GKError(kName, "unsubscribeToEvent", module + " has not subscribed to " + event);
  }
  // Outside of the locks: a callback that is running may raise and subscribe.
  ended.delivery->cancel(event);
  if (const boost::shared_ptr<GKModuleCore> extractor = findExtractor(*this, abandoned)) {
    callExtractor(*extractor, "unsubscribe", module);
  }
}

bool GKMemory::xEndUse(const std::string& owner, const std::string& module,
                       const std::string& event) {
  const auto use = fState->uses.find({owner, module});
  if (use == fState->uses.end() || use->second.events.erase(event) == 0 ||
      !use->second.events.empty()) {
    return false;
  }
  const bool wasSubscribed = use->second.isSubscribed;
  fState->uses.erase(use);
  return wasSubscribed;
}

} // namespace GK
