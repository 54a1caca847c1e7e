#include "GKDelivery.h"

#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "zu/log.h"

#include <exception>
#include <utility>

namespace GK {

GKDelivery::Callback& GKDelivery::callback(const std::string& event, const std::string& method) {
  const std::lock_guard lock(fMutex);
  for (Callback& known : fCallbacks) {
    if (known.method == method && known.arguments.front().toString() == event) {
      return known;
    }
  }
  return fCallbacks.emplace_back(Callback{method, {event, GKValue()}});
}

// Hot path, as is `xDrain`: numbers travel without an allocation.
void GKDelivery::deliver(Callback& callback, const GKValue& value) {
  {
    const std::lock_guard lock(fMutex);
    fItems.push_back({&callback, value});
    if (std::exchange(fIsDraining, true)) {
      return;
    }
  }
  const boost::shared_ptr<GKModuleCore> module = fModule.lock();
  GKClock::instance().post({module != nullptr ? module->getName() : std::string(), callback.method},
                           [self = shared_from_this()] { self->xDrain(); });
}

void GKDelivery::xDrain() {
  const GKCallerScope scope(GKCaller::Platform);
  while (true) {
    fTaken.clear();
    {
      const std::lock_guard lock(fMutex);
      fTaken.swap(fItems);
      if (fTaken.empty()) {
        fIsDraining = false;
        return;
      }
    }
    if (const boost::shared_ptr<GKModuleCore> module = fModule.lock()) {
      for (Item& item : fTaken) {
        xCall(*module, item);
      }
    }
  }
}

void GKDelivery::xCall(GKModuleCore& module, Item& item) {
  Callback& callback = *item.callback;
  const auto complain = [&](const char* why) {
    zu::log::error("platform.proxy", "deliver")
        << module.getName() << "." << callback.method << " for "
        << callback.arguments.front().toString() << ": " << why;
  };
  callback.arguments.back() = std::move(item.value);
  try {
    module.callMethod(callback.method, callback.arguments);
  } catch (const std::exception& error) {
    complain(error.what());
  } catch (...) {
    complain("unknown exception");
  }
}

} // namespace GK
