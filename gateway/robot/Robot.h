#pragma once

#include "gateway/figures/LoopFigures.h"
#include "gateway/robot/CarryOut.h"
#include "gateway/robot/RpcRequest.h"
#include "gateway/robot/SubscriberLimit.h"
#include "gk/GKBroker.h"
#include "gk/GKMemory.h"
#include "gk/GKModuleCore.h"

#include <boost/json/value.hpp>
#include <boost/shared_ptr.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

namespace gk::gateway {

/// A bound method with its arguments, ready to be called.
struct BoundCall {
  boost::shared_ptr<GK::GKModuleCore> module;
  std::string method;
  std::vector<GK::GKValue> arguments;
  bool hasResult = false;
};

/// The modules and the memory of the host, as clients ask for them by name. Any thread.
class Robot {
public:
  /// `loops` may be empty where nobody measures them, `carryOut` where nobody records.
  explicit Robot(boost::shared_ptr<GK::GKBroker> broker, LoopSource loops = {},
                 CarryOut carryOut = {});

  /// From now on all calls and writes are refused for this reason. Before it is shared.
  void refuse(std::string reason) { fRefusal = std::move(reason); }
  /// Empty where they are not.
  const std::string& refusal() const noexcept { return fRefusal; }

  GK::GKBroker& broker() const { return *fBroker; }
  /// Null in a host without memory service.
  const boost::shared_ptr<GK::GKMemory>& memory() const { return fMemory; }
  std::shared_ptr<GK::GKMemoryStore> store() const;

  /// Finds a method by name and makes its arguments of `params` (array, object with the parameters'
  /// names, or null): no such module, method or parameters is an error of the request.
  std::variant<BoundCall, RpcError> resolve(const std::string& module, const std::string& method,
                                            const boost::json::value& params) const;

  /// Figures of the loops that are measured, at this moment.
  std::vector<LoopFigures> loops() const;

  /// The module of this name, or an error that tells the nearest names.
  std::variant<boost::shared_ptr<GK::GKModuleCore>, RpcError>
  findModule(const std::string& name) const;

  /// Names of all modules in the order of their registration.
  std::vector<std::string> moduleNames() const;

  /// "there is no key X; did you mean Y?"
  std::string unknownKey(const std::string& key) const;

  /// Writes a memory key on behalf of a client. The table of device keys decides about the type of
  /// its keys. Raises `FormatError` for a value that does not fit, `GKError` without a memory.
  void writeKey(const std::string& key, const boost::json::value& value) const;

private:
  boost::shared_ptr<GK::GKBroker> fBroker;
  boost::shared_ptr<GK::GKMemory> fMemory;
  LoopSource fLoops;
  CarryOut fCarryOut;
  std::string fRefusal;
  std::unique_ptr<SubscriberLimit> fSubscribers = std::make_unique<SubscriberLimit>();
};

/// A JSON Schema of the values of a type as `GKConvert::text` names it, as JSON text.
std::string schemaOfType(std::string_view type);

/// Appends the schema of an object with a method's parameters by name; the ones that every overload
/// takes are required.
std::string schemaOfParams(const std::vector<GK::GKMethodDescription>& overloads);

} // namespace gk::gateway
