#include "gk/GKProxy.h"

#include "gk/GKClock.h"
#include "zu/log.h"

#include <atomic>
#include <exception>

namespace GK {

GKProxy::GKProxy(boost::shared_ptr<GKModuleCore> module) : fModule(std::move(module)) {}

boost::shared_ptr<GKModule> GKProxy::getModule() const {
  return boost::dynamic_pointer_cast<GKModule>(fModule);
}

void GKProxy::stop(const int& task) {
  if (const boost::shared_ptr<GKModule> module = getModule()) {
    module->stop(task);
  }
}

GKValue GKProxy::xCall(const std::string& method, const std::vector<GKValue>& arguments) {
  const GKCallerScope scope(GKCaller::Module);
  return fModule->callMethod(method, arguments);
}

int GKProxy::xPost(const std::string& method, std::vector<GKValue> arguments) {
  const auto work = [module = fModule, method, arguments = std::move(arguments)] {
    const auto complain = [&](const char* why) {
      zu::log::error("platform.proxy", "postCall")
          << module->getName() << "." << method << ": " << why;
    };
    const GKCallerScope scope(GKCaller::Module);
    try {
      module->callMethod(method, arguments);
    } catch (const std::exception& error) {
      complain(error.what());
    } catch (...) {
      complain("unknown exception");
    }
  };
  static std::atomic<int> latest{0};
  const int number = latest.fetch_add(1, std::memory_order_relaxed) + 1;
  GKClock::instance().post({fModule->getName(), method, number}, work);
  return number;
}

} // namespace GK
