#include "gk/GKModuleCore.h"

#include "gk/GKBroker.h"

#include <algorithm>

namespace GK {

GKModuleCore::GKModuleCore(const boost::shared_ptr<GKBroker>& broker, std::string name)
    : fName(std::move(name)), fBroker(broker) {}

GKModuleCore::~GKModuleCore() = default;

void GKModuleCore::initModule() {
  const boost::shared_ptr<GKBroker> broker = getParentBroker();
  if (broker == nullptr) {
    throw GKError(fName, "initModule", "the broker is gone");
  }
  broker->registerModule(shared_from_this());
}

bool GKModuleCore::isInitialising() const {
  const std::lock_guard lock(fInitMutex);
  return fIsInitialising;
}

void GKModuleCore::whenInitialised(std::function<void()> work) {
  {
    const std::lock_guard lock(fInitMutex);
    if (fIsInitialising) {
      fWaitForInit.push_back(std::move(work));
      return;
    }
  }
  work();
}

void GKModuleCore::xBeginInit() {
  const std::lock_guard lock(fInitMutex);
  fIsInitialising = true;
}

void GKModuleCore::xEndInit(bool succeeded) {
  std::vector<std::function<void()>> waiting;
  {
    const std::lock_guard lock(fInitMutex);
    fIsInitialising = false;
    waiting.swap(fWaitForInit);
  }
  if (succeeded) {
    for (const std::function<void()>& work : waiting) {
      work();
    }
  }
}

std::vector<GKMethodDescription> GKModuleCore::getMethods() const {
  std::vector<GKMethodDescription> descriptions;
  descriptions.reserve(fMethods.size());
  for (const BoundMethod& method : fMethods) {
    descriptions.push_back(method.description);
  }
  return descriptions;
}

const GKMethodDescription* GKModuleCore::findMethod(const std::string& method,
                                                    std::size_t argumentCount) const noexcept {
  const BoundMethod* bound = xFind(method, argumentCount);
  return bound != nullptr ? &bound->description : nullptr;
}

GKValue GKModuleCore::callMethod(const std::string& method, const std::vector<GKValue>& arguments) {
  if (const BoundMethod* bound = xFind(method, arguments.size())) {
    return bound->call(arguments);
  }
  const bool isKnown = std::any_of(fMethods.begin(), fMethods.end(), [&](const BoundMethod& bound) {
    return bound.description.name == method;
  });
  throw GKError(fName, method,
                isKnown ? "does not take " + std::to_string(arguments.size()) + " argument" +
                              (arguments.size() == 1 ? "" : "s")
                        : "no such method");
}

void GKModuleCore::functionName(const std::string& method, const std::string& module,
                                const std::string& description, int mask) {
  fCurrent = GKMethodDescription();
  fCurrent.name = method;
  fCurrent.module = module;
  fCurrent.description = description;
  fCurrent.mask = mask;
}

void GKModuleCore::addParam(const std::string& name, const std::string& description) {
  fCurrent.params.push_back({name, description, ""});
}

void GKModuleCore::setReturn(const std::string& name, const std::string& description) {
  fCurrent.result.name = name;
  fCurrent.result.description = description;
}

void GKModuleCore::xBind(Method method, std::vector<std::string> paramTypes, std::string resultType,
                         bool isOverload) {
  const auto refuse = [this](const std::string& why) {
    throw GKError(fName, "bindMethod", fCurrent.name + ": " + why);
  };
  if (fCurrent.name.empty()) {
    refuse("no method was declared");
  }
  if (fCurrent.params.size() != paramTypes.size()) {
    refuse(std::to_string(fCurrent.params.size()) + " parameters declared, " +
           std::to_string(paramTypes.size()) + " in the signature");
  }
  if (resultType.empty() && !fCurrent.result.name.empty()) {
    refuse("a result declared, none in the signature");
  }
  if (!fCurrent.result.type.empty() && fCurrent.result.type != resultType) {
    refuse("result declared as " + fCurrent.result.type + ", " + resultType + " in the signature");
  }
  for (const BoundMethod& bound : fMethods) {
    const bool isSameName = bound.description.name == fCurrent.name;
    if (isSameName && (!isOverload || bound.description.params.size() == paramTypes.size())) {
      refuse("bound already");
    }
  }
  for (std::size_t i = 0; i < paramTypes.size(); ++i) {
    fCurrent.params[i].type = std::move(paramTypes[i]);
  }
  fCurrent.result.type = std::move(resultType);
  fMethods.push_back({std::move(fCurrent), std::move(method)});
  fCurrent = GKMethodDescription();
}

const GKModuleCore::BoundMethod* GKModuleCore::xFind(const std::string& method,
                                                     std::size_t argumentCount) const noexcept {
  for (const BoundMethod& bound : fMethods) {
    if (bound.description.params.size() == argumentCount && bound.description.name == method) {
      return &bound;
    }
  }
  return nullptr;
}

} // namespace GK
