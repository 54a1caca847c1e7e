#pragma once

#include "gk/GKApi.h"
#include "gk/GKCaller.h"
#include "gk/GKConvert.h"
#include "gk/GKModule.h"

#include <boost/shared_ptr.hpp>

#include <string>
#include <type_traits>
#include <utility>
#include <vector>

namespace GK {

/// A module as other modules call it. Keeps the module alive. May be used from any thread.
class GK_API GKProxy {
public:
  explicit GKProxy(boost::shared_ptr<GKModuleCore> module);

  /// Calls a bound method and converts its result. Raises what the method raises, and the `GKError`
  /// of a refused argument when the result is of another type.
  template <class R, class... A> R call(const std::string& method, A&&... arguments) {
    return GKConvertOf<R>::from(
        xCall(method, {GKConvert<std::decay_t<A>>::to(std::forward<A>(arguments))...}));
  }

  /// Calls a bound method and drops its result. Raises what the method raises.
  template <class... A> void callVoid(const std::string& method, A&&... arguments) {
    xCall(method, {GKConvert<std::decay_t<A>>::to(std::forward<A>(arguments))...});
  }

  /// Starts a bound method in a task of its own and returns at once. What the method raises is
  /// logged at error level in category "platform.proxy". Returns the task's number.
  template <class... A> int postCall(const std::string& method, A&&... arguments) {
    return xPost(method, {GKConvert<std::decay_t<A>>::to(std::forward<A>(arguments))...});
  }

  /// Asks the module for the end of a task that `postCall` began, by its number. Modules may heed
  /// it or not (`GKModule::stop`).
  void stop(const int& task);

  /// The module behind the proxy.
  boost::shared_ptr<GKModule> getModule() const;

  /// True: modules live in the process of their broker.
  bool isLocal() const noexcept { return true; }

private:
  GKValue xCall(const std::string& method, const std::vector<GKValue>& arguments);
  int xPost(const std::string& method, std::vector<GKValue> arguments);

  boost::shared_ptr<GKModuleCore> fModule;
};

} // namespace GK
