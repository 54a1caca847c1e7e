#include "gateway/robot/Robot.h"

#include "formats/text/NearestNames.h"
#include "messages/json/JsonValue.h"
#include "messages/json/JsonWriter.h"
#include "messages/json/KeyTypes.h"
#include "messages/keys/DeviceKeys.h"
#include "messages/text/FormatError.h"

#include <boost/json/array.hpp>
#include <boost/json/object.hpp>
#include <boost/pointer_cast.hpp>

#include <algorithm>
#include <utility>

namespace gk::gateway {

namespace {

namespace json = boost::json;

using Overloads = std::vector<GK::GKMethodDescription>;

/// `what` says it in full ("method GKSonar.subscrib"), `known` are names such as `name`.
RpcError noSuch(const std::string& what, const std::string& name,
                const std::vector<std::string>& known) {
  const std::vector<std::string> nearest = formats::nearestNames(name, known);
  RpcError error{kNoSuchMethod, "there is no " + what + formats::didYouMean(nearest), {}};
  messages::JsonWriter writer(error.data);
  writer.beginObject().key("nearest").beginArray();
  for (const std::string& one : nearest) {
    writer.text(one);
  }
  writer.endArray().endObject();
  return error;
}

std::size_t countOf(const json::value& params) {
  return params.is_array()    ? params.get_array().size()
         : params.is_object() ? params.get_object().size()
                              : 0;
}

/// The overload that takes these parameters, or null.
const GK::GKMethodDescription* fitting(const GK::GKModuleCore& module, const std::string& method,
                                       const json::value& params) {
  const GK::GKMethodDescription* overload = module.findMethod(method, countOf(params));
  const bool fits =
      overload != nullptr &&
      (!params.is_object() || std::ranges::all_of(overload->params, [&](const auto& param) {
        return params.get_object().contains(param.name);
      }));
  return fits ? overload : nullptr;
}

/// "takes (name) or (name, period, precision)".
std::string signatures(const Overloads& overloads) {
  std::string text;
  for (const GK::GKMethodDescription& overload : overloads) {
    text += text.empty() ? "takes (" : " or (";
    for (std::size_t i = 0; i < overload.params.size(); ++i) {
      text += i == 0 ? "" : ", ";
      text += overload.params[i].name;
    }
    text += ')';
  }
  return text;
}

/// Why none of a module's methods is what was called.
RpcError misfit(const GK::GKModuleCore& module, const std::string& method) {
  Overloads overloads = module.getMethods();
  std::vector<std::string> names;
  for (const GK::GKMethodDescription& one : overloads) {
    names.push_back(one.name);
  }
  std::erase_if(overloads, [&](const auto& one) { return one.name != method; });
  if (!overloads.empty()) {
    return {kInvalidParams, module.getName() + "." + method + " " + signatures(overloads), {}};
  }
  std::ranges::sort(names);
  names.erase(std::unique(names.begin(), names.end()), names.end());
  return noSuch("method " + module.getName() + "." + method, method, names);
}

/// The methods whose second argument is stored under the name that is their first one.
constexpr std::string_view kWrites[] = {"insertData", "raiseEvent", "raiseMicroEvent"};

bool isWrite(const std::string& module, const std::string& method) {
  return module == GK::GKMemory::kName && std::ranges::find(kWrites, method) != std::end(kWrites);
}

/// A number as the key's type has it: whatever is wrong with it is an error of the request.
GK::GKValue writtenValue(const std::string& key, const json::value& value) {
  try {
    return messages::valueForKey(messages::keyTypeOf(key), value);
  } catch (const messages::FormatError& error) {
    throw messages::FormatError(key + ": " + error.what());
  }
}

/// The arguments in the method's order. Raises `FormatError`.
std::vector<GK::GKValue> argumentsOf(const GK::GKMethodDescription& method,
                                     const json::value& params) {
  std::vector<GK::GKValue> arguments;
  for (std::size_t i = 0; i < method.params.size(); ++i) {
    const std::string& name = method.params[i].name;
    const json::value& given =
        params.is_array() ? params.get_array()[i] : params.get_object().at(name);
    try {
      arguments.push_back(messages::valueFromJson(given));
    } catch (const messages::FormatError& error) {
      throw messages::FormatError(name + ": " + error.what());
    }
  }
  return arguments;
}

} // namespace

Robot::Robot(boost::shared_ptr<GK::GKBroker> broker, LoopSource loops, CarryOut carryOut)
    : fBroker(std::move(broker)),
      fMemory(boost::dynamic_pointer_cast<GK::GKMemory>(fBroker->findModule(GK::GKMemory::kName))),
      fLoops(std::move(loops)), fCarryOut(std::move(carryOut)) {}

std::shared_ptr<GK::GKMemoryStore> Robot::store() const {
  return fMemory != nullptr ? fMemory->store() : nullptr;
}

std::vector<LoopFigures> Robot::loops() const {
  return fLoops ? fLoops() : std::vector<LoopFigures>();
}

std::vector<std::string> Robot::moduleNames() const {
  std::vector<std::string> names;
  for (const auto& module : fBroker->getModules()) {
    names.push_back(module->getName());
  }
  return names;
}

std::variant<boost::shared_ptr<GK::GKModuleCore>, RpcError>
Robot::findModule(const std::string& name) const {
  boost::shared_ptr<GK::GKModuleCore> module = fBroker->findModule(name);
  if (module == nullptr) {
    return noSuch("module " + name, name, moduleNames());
  }
  return module;
}

std::variant<BoundCall, RpcError> Robot::resolve(const std::string& module,
                                                 const std::string& method,
                                                 const json::value& params) const {
  if (!fRefusal.empty()) {
    RpcError error = raisedError(GK::GKError(module, method, fRefusal));
    error.message = fRefusal;
    return error;
  }
  auto found = findModule(module);
  if (auto* error = std::get_if<RpcError>(&found)) {
    return std::move(*error);
  }
  BoundCall call;
  call.module = std::get<boost::shared_ptr<GK::GKModuleCore>>(found);
  call.method = method;
  const GK::GKMethodDescription* overload = fitting(*call.module, method, params);
  if (overload == nullptr) {
    return misfit(*call.module, method);
  }
  try {
    call.arguments = argumentsOf(*overload, params);
    if (isWrite(module, method) && call.arguments[0].type() == GK::GKValue::Type::String) {
      const json::value& value = params.is_array()
                                     ? params.get_array()[1]
                                     : params.get_object().at(overload->params[1].name);
      call.arguments[1] = writtenValue(call.arguments[0].toString(), value);
    }
  } catch (const messages::FormatError& error) {
    return RpcError{kInvalidParams, error.what(), {}};
  }
  if (std::string refusal = fSubscribers->admit(module, method, call.arguments); !refusal.empty()) {
    return RpcError{kInvalidParams, std::move(refusal), {}};
  }
  call.hasResult = !overload->result.type.empty();
  return call;
}

std::string Robot::unknownKey(const std::string& key) const {
  const std::shared_ptr<GK::GKMemoryStore> keys = store();
  // A look at every key, for hosts with no more than a robot has.
  constexpr std::size_t kMostCompared = 20'000;
  const bool isSmall = keys != nullptr && keys->size() <= kMostCompared;
  return "there is no key " + key +
         (isSmall ? formats::didYouMean(formats::nearestNames(key, keys->keys())) : std::string());
}

void Robot::writeKey(const std::string& key, const json::value& value) const {
  if (!fRefusal.empty()) {
    throw GK::GKError(GK::GKMemory::kName, "insertData", fRefusal);
  }
  const GK::GKValue converted = messages::valueForKey(messages::keyTypeOf(key), value);
  if (fMemory == nullptr) {
    throw GK::GKError("GKBroker", "getProxy", "there is no module GKMemory");
  }
  const auto write = [&] { fMemory->insertData(key, converted, GK::GKCaller::Client); };
  if (fCarryOut) {
    const std::string method = "insertData";
    fCarryOut(formats::CallAction{GK::GKMemory::kName,
                                  method,
                                  {key, converted},
                                  std::string(GK::GKMemory::kName) + "." + method},
              write);
  } else {
    write();
  }
}

std::string schemaOfType(std::string_view type) {
  constexpr std::string_view list = "vector of ";
  if (type.starts_with(list)) {
    return R"({"type":"array","items":)" + schemaOfType(type.substr(list.size())) + "}";
  }
  if (type == "bool") {
    return R"({"type":"boolean"})";
  }
  if (type == "int") {
    return R"({"type":"integer"})";
  }
  if (type == "float") {
    return R"({"type":"number"})";
  }
  if (type == "string") {
    return R"({"type":"string"})";
  }
  return "{}";
}

std::string schemaOfParams(const Overloads& overloads) {
  std::string text;
  messages::JsonWriter writer(text);
  std::vector<std::string> shown;
  writer.beginObject().key("type").text("object").key("properties").beginObject();
  for (const GK::GKMethodDescription& overload : overloads) {
    for (const GK::GKParamDescription& param : overload.params) {
      if (std::ranges::find(shown, param.name) != shown.end()) {
        continue;
      }
      shown.push_back(param.name);
      std::string schema = schemaOfType(param.type);
      schema.pop_back();
      schema += schema.size() > 1 ? R"(,"description":)" : R"("description":)";
      messages::appendJsonString(schema, param.description);
      writer.key(param.name).raw(schema + "}");
    }
  }
  writer.endObject().key("required").beginArray();
  for (const std::string& name : shown) {
    const bool isAlways = std::ranges::all_of(overloads, [&name](const auto& overload) {
      return std::ranges::find(overload.params, name, &GK::GKParamDescription::name) !=
             overload.params.end();
    });
    if (isAlways) {
      writer.text(name);
    }
  }
  writer.endArray().endObject();
  return text;
}

} // namespace gk::gateway
