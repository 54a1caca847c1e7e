#include "platform/services/GKDelivery.h"

#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "zu/log.h"

#include <chrono>
#include <exception>
#include <mutex>
#include <thread>
#include <utility>

namespace GK {

namespace {

/// How often a task that has handed everything over looks for more before it sleeps, giving way to
/// other threads in between. In a burst of events it then serves many of them: waking it costs ten
/// times as much as a delivery.
constexpr int kLooksForMore = 50;

/// How long it then sleeps before it ends: some ticks of a loop. To wake it costs whoever raises
/// half of what starting one does, and the callback begins sooner.
constexpr std::chrono::milliseconds kStay{100};

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

// Hot path, as is `xHandOver`: numbers travel without an allocation, and nobody waits for a lock.
GKDelivery::Call GKDelivery::add(Callback& callback, const GKValue& value) {
  GKParcel& parcel = callback.parcels.take();
  parcel.callback = &callback;
  parcel.subscription = callback.ended.load(std::memory_order_relaxed);
  parcel.value = value;
  return fQueue.put(parcel);
}

void GKDelivery::start(const Callback& callback, Call call) {
  if (call == Call::Wake) {
    fBell.ring();
    return;
  }
  const boost::shared_ptr<GKModuleCore> module = fModule.lock();
  GKClock::instance().post({module != nullptr ? module->getName() : std::string(), callback.method},
                           [self = shared_from_this()] { self->xDrain(); });
}

void GKDelivery::xDrain() {
  const GKCallerScope scope(GKCaller::Platform);
  do {
    while (GKParcel* first = fQueue.takeAll()) {
      xHandOver(first);
      xWaitForMore();
    }
  } while (xStay());
}

GKDelivery::Target GKDelivery::xTarget() const {
  Target target{fModule.lock(), nullptr};
  if (target.module != nullptr) {
    target.broker = target.module->getParentBroker();
  }
  return target;
}

bool GKDelivery::xStay() {
  if (!GKClock::instance().isOneAtATime() && xTarget().isThere()) {
    if (!fQueue.fallAsleep()) {
      return true;
    }
    fBell.await(kStay);
    // Whoever puts something from now on finds a task that takes.
    if (!fQueue.wakeUp()) {
      return true;
    }
  }
  return !fQueue.end();
}

void GKDelivery::xWaitForMore() const {
  if (GKClock::instance().isOneAtATime()) {
    return;
  }
  // Not too eagerly: to take some at once is cheaper than to take each when it comes.
  int looks = 0;
  do {
    std::this_thread::yield();
  } while (++looks < kLooksForMore && fQueue.isEmpty());
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
    fCancelling.fetch_add(1, std::memory_order_relaxed);
    fCalling.lock();
    fCancelling.fetch_sub(1, std::memory_order_relaxed);
    fCalling.unlock();
  }
}

void GKDelivery::xHandOver(GKParcel* first) {
  const Target target = xTarget();
  // Where the thread has it is found once for all.
  bool& isInCallback = tIsInCallback;
  std::unique_lock call(fCalling);
  for (GKParcel* parcel = first; parcel != nullptr;) {
    Callback& callback = *parcel->callback;
    if (fCancelling.load(std::memory_order_relaxed) != 0) {
      call.unlock();
      call.lock();
    }
    // Once the shutdown has begun nothing is handed over: a callback that raises what it is called
    // for would keep it waiting for ever. The subscription is looked at with the lock: whoever ends
    // it afterwards waits for the call.
    const bool isWanted =
        target.isThere() && callback.ended.load(std::memory_order_relaxed) == parcel->subscription;
    GKValue& value = callback.arguments.back();
    value = std::move(parcel->value);
    parcel = parcel->next;
    callback.parcels.giveBack();
    if (isWanted) {
      isInCallback = true;
      xCall(*target.module, callback);
      isInCallback = false;
    }
    // Where the last value was a text, the next one would leave its room to the parcel that brings
    // it, and each parcel keep room for the longest one that it ever had.
    if (value.type() == GKValue::Type::String || value.type() == GKValue::Type::Array) {
      value = GKValue();
    }
  }
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
