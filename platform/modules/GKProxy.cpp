#include "gk/GKProxy.h"

#include "gk/GKClock.h"
#include "zu/log.h"

#include <exception>

namespace GK {

GKProxy::GKProxy(boost::shared_ptr<GKModuleCore> module) : fModule(std::move(module)) {}

boost::shared_ptr<GKModule> GKProxy::getModule() const {
  return boost::dynamic_pointer_cast<GKModule>(fModule);
}

GKValue GKProxy::xCall(const std::string& method, const std::vector<GKValue>& arguments) {
  const GKCallerScope scope(GKCaller::Module);
  return fModule->callMethod(method, arguments);
}

void GKProxy::xPost(const std::string& method, std::vector<GKValue> arguments) {
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
  GKClock::instance().post({fModule->getName(), method}, work);
}

} // namespace GK
