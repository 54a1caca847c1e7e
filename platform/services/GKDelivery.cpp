#include "platform/services/GKDelivery.h"

#include "gk/GKBroker.h"
#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "zu/log.h"

#include <exception>
#include <mutex>
#include <thread>
#include <utility>

namespace GK {

namespace {

/// How often a task that has handed everything over looks for more before it ends, giving way to
/// other threads in between. In a burst of events one task then serves many of them: starting one
/// costs ten times as much as a delivery.
constexpr int kLooksForMore = 50;

/// The calling thread is inside an event callback.
thread_local bool tIsInCallback = false;

} // namespace

GKDelivery::Callback& GKDelivery::callback(const std::string& event, const std::string& method) {
  const std::lock_guard lock(fMutex);
  for (Callback& known : fCallbacks) {
    if (known.method == method && known.arguments.front().toString() == event) {
      return known;
    }
  }
  return fCallbacks.emplace_back(method, event);
}

// Hot path, as is `xDrain`: numbers travel without an allocation.
bool GKDelivery::add(Callback& callback, const GKValue& value) {
  const std::lock_guard lock(fMutex);
  fItems.push_back({&callback, callback.ended.load(std::memory_order_relaxed), value});
  fIsEmpty.store(false, std::memory_order_relaxed);
  return !std::exchange(fIsDraining, true);
}

void GKDelivery::start(const Callback& callback) {
  const boost::shared_ptr<GKModuleCore> module = fModule.lock();
  GKClock::instance().post({module != nullptr ? module->getName() : std::string(), callback.method},
                           [self = shared_from_this()] { self->xDrain(); });
}

void GKDelivery::xDrain() {
  const GKCallerScope scope(GKCaller::Platform);
  for (; xTake(); xWaitForMore()) {
    const boost::shared_ptr<GKModuleCore> module = fModule.lock();
    const boost::shared_ptr<GKBroker> broker =
        module != nullptr ? module->getParentBroker() : nullptr;
    for (Item& item : fTaken) {
      // Once the shutdown has begun nothing is handed over: a callback that raises what it is
      // called for would keep it waiting for ever.
      if (module == nullptr || (broker != nullptr && broker->isExiting())) {
        break;
      }
      xHandOver(*module, item);
    }
  }
}

void GKDelivery::xWaitForMore() const {
  if (GKClock::instance().isOneAtATime()) {
    return;
  }
  // Without the lock, which the raiser would have to wait for; and not too eagerly: to take some
  // at once is cheaper than to take each when it comes.
  int looks = 0;
  do {
    std::this_thread::yield();
  } while (++looks < kLooksForMore && fIsEmpty.load(std::memory_order_relaxed));
}

bool GKDelivery::xTake() {
  fTaken.clear();
  const std::lock_guard lock(fMutex);
  fTaken.swap(fItems);
  fIsEmpty.store(true, std::memory_order_relaxed);
  fIsDraining = !fTaken.empty();
  return fIsDraining;
}

void GKDelivery::cancel(const std::string& event) {
  {
    const std::lock_guard lock(fMutex);
    // All of them: a repeated subscription may have changed the method.
    for (Callback& known : fCallbacks) {
      if (known.arguments.front().toString() == event) {
        known.ended.fetch_add(1, std::memory_order_relaxed);
      }
    }
  }
  // Callbacks that wait for each other would never end.
  if (!tIsInCallback) {
    const std::lock_guard call(fCalling);
  }
}

void GKDelivery::xHandOver(GKModuleCore& module, Item& item) {
  Callback& callback = *item.callback;
  const std::lock_guard call(fCalling);
  // Looked at with the lock: whoever ends the subscription afterwards waits for the call.
  if (callback.ended.load(std::memory_order_relaxed) != item.subscription) {
    return;
  }
  callback.arguments.back() = std::move(item.value);
  tIsInCallback = true;
  xCall(module, callback);
  tIsInCallback = false;
}

void GKDelivery::xCall(GKModuleCore& module, Callback& callback) {
  const auto complain = [&](const char* why) {
    zu::log::error("platform.proxy", "deliver")
        << module.getName() << "." << callback.method << " for "
        << callback.arguments.front().toString() << ": " << why;
  };
  try {
    module.callMethod(callback.method, callback.arguments);
  } catch (const std::exception& error) {
    complain(error.what());
  } catch (...) {
    complain("unknown exception");
  }
}

} // namespace GK
