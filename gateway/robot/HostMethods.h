#pragma once

#include "gateway/robot/CallRunner.h"

#include <boost/json/value.hpp>

#include <functional>
#include <map>
#include <string>

namespace gk::gateway {

/// Methods of the host itself, which are called like those of modules: "Clock.advance". To be
/// filled before the first request; for any thread from then on.
class HostMethods {
public:
  using Done = CallRunner::Done;
  /// Calls `done` once, at once or later.
  using Method = std::function<void(const boost::json::value& params, Done done)>;

  void add(const std::string& module, const std::string& method, Method work);

  /// Whether the host has this name for itself: there is no module of this name for clients.
  bool hasModule(const std::string& module) const { return fMethods.contains(module); }
  /// Null where there is no such method.
  const Method* find(const std::string& module, const std::string& method) const;

  /// The error of a call of a method that such a module does not have.
  RpcError noSuchMethod(const std::string& module, const std::string& method) const;

private:
  std::map<std::string, std::map<std::string, Method>> fMethods;
};

} // namespace gk::gateway
