#include "gateway/robot/HostMethods.h"

#include <utility>

namespace gk::gateway {

void HostMethods::add(const std::string& module, const std::string& method, Method work) {
  fMethods[module][method] = std::move(work);
}

const HostMethods::Method* HostMethods::find(const std::string& module,
                                             const std::string& method) const {
  const auto found = fMethods.find(module);
  if (found == fMethods.end()) {
    return nullptr;
  }
  const auto work = found->second.find(method);
  return work != found->second.end() ? &work->second : nullptr;
}

RpcError HostMethods::noSuchMethod(const std::string& module, const std::string& method) const {
  std::string known;
  if (const auto found = fMethods.find(module); found != fMethods.end()) {
    for (const auto& [name, work] : found->second) {
      known.append(known.empty() ? "" : ", ").append(module).append(".").append(name);
    }
  }
  return {kNoSuchMethod, "there is no method " + module + "." + method + "; there is " + known, {}};
}

} // namespace gk::gateway
