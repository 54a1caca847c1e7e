#include "GKDelivery.h"

#include "gk/GKCaller.h"
#include "gk/GKClock.h"
#include "zu/log.h"

#include <exception>

namespace GK {

void GKDelivery::deliver(const std::string& event, const std::string& method,
                         const GKValue& value) {
  {
    const std::lock_guard lock(fMutex);
    fItems.push_back({event, method, value});
    if (std::exchange(fIsDraining, true)) {
      return;
    }
  }
  const boost::shared_ptr<GKModuleCore> module = fModule.lock();
  GKClock::instance().post({module != nullptr ? module->getName() : std::string(), method},
                           [self = shared_from_this()] { self->xDrain(); });
}

void GKDelivery::xDrain() {
  const GKCallerScope scope(GKCaller::Platform);
  while (true) {
    std::deque<Item> items;
    {
      const std::lock_guard lock(fMutex);
      items.swap(fItems);
      if (items.empty()) {
        fIsDraining = false;
        return;
      }
    }
    const boost::shared_ptr<GKModuleCore> module = fModule.lock();
    if (module == nullptr) {
      continue;
    }
    for (const Item& item : items) {
      const auto complain = [&](const char* why) {
        zu::log::error("platform.proxy", "deliver")
            << module->getName() << "." << item.method << " for " << item.event << ": " << why;
      };
      try {
        module->callMethod(item.method, {item.event, item.value});
      } catch (const std::exception& error) {
        complain(error.what());
      } catch (...) {
        complain("unknown exception");
      }
    }
  }
}

} // namespace GK
