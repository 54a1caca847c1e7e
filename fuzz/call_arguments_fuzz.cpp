#include "fuzz/Require.h"
#include "gk/GKBroker.h"
#include "gk/GKBrokerManager.h"
#include "gk/GKModule.h"
#include "messages/json/Json.h"
#include "messages/json/JsonValue.h"

#include <boost/make_shared.hpp>

#include <map>
#include <string>
#include <string_view>
#include <vector>

// A remote call: {"method": NAME, "args": [...]}. Arguments are converted without guessing, or
// refused with a `GKError`.

namespace {

using GK::GKValue;

/// Gives back what it is called with.
class Echo : public GK::GKModule {
public:
  explicit Echo(const boost::shared_ptr<GK::GKBroker>& broker) : GKModule(broker, "Echo") {
    xBind("bool", &Echo::xEcho<bool>);
    xBind("int", &Echo::xEcho<int>);
    xBind("float", &Echo::xEcho<float>);
    xBind("string", &Echo::xEcho<std::string>);
    xBind("value", &Echo::xEcho<GKValue>);
    xBind("floats", &Echo::xEcho<std::vector<float>>);
    xBind("nested", &Echo::xEcho<std::vector<std::vector<std::string>>>);
    functionName("many", getName(), "");
    addParam("a", "");
    addParam("b", "");
    addParam("c", "");
    bindMethod(&Echo::xMany, this);
  }

private:
  template <class T> void xBind(const char* name, T (Echo::*method)(const T&)) {
    functionName(name, getName(), "");
    addParam("value", "");
    setReturn("value", "");
    bindMethod(method, this);
  }
  template <class T> T xEcho(const T& value) { return value; }
  void xMany(const int&, const float&, const std::string&) {}
};

GKValue::Type typeOf(const std::string& method) {
  static const std::map<std::string, GKValue::Type> types = {
      {"bool", GKValue::Type::Bool},    {"int", GKValue::Type::Int},
      {"float", GKValue::Type::Float},  {"string", GKValue::Type::String},
      {"floats", GKValue::Type::Array}, {"nested", GKValue::Type::Array}};
  return types.at(method);
}

void check(const std::string& method, const std::vector<GKValue>& arguments,
           const GKValue& result) {
  if (method == "many") {
    gk::fuzz::require(arguments.size() == 3 && result.type() == GKValue::Type::Invalid,
                      "only the declared number of arguments is taken");
    return;
  }
  gk::fuzz::require(arguments.size() == 1, "only the declared number of arguments is taken");
  const GKValue::Type given = arguments[0].type();
  if (method == "value") {
    gk::fuzz::require(result.type() == given, "a value stays what it is");
    return;
  }
  const bool isIntForFloat = method == "float" && given == GKValue::Type::Int;
  gk::fuzz::require(given == typeOf(method) || isIntForFloat, "conversions never guess");
  gk::fuzz::require(result.type() == typeOf(method), "the result has the declared type");
}

struct Bench {
  Bench() { echo->initModule(); }
  boost::shared_ptr<GK::GKBrokerManager> manager = boost::make_shared<GK::GKBrokerManager>();
  boost::shared_ptr<GK::GKBroker> broker = boost::make_shared<GK::GKBroker>("fuzz", manager);
  boost::shared_ptr<Echo> echo = boost::make_shared<Echo>(broker);
};

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const Bench bench;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  try {
    const boost::json::value call = gk::messages::parseJson(text);
    const boost::json::object* object = call.if_object();
    const auto* method = object != nullptr ? object->if_contains("method") : nullptr;
    const auto* args = object != nullptr ? object->if_contains("args") : nullptr;
    if (method == nullptr || !method->is_string() || args == nullptr || !args->is_array()) {
      return 0;
    }
    std::vector<GKValue> arguments;
    for (const boost::json::value& argument : args->get_array()) {
      arguments.push_back(gk::messages::valueFromJson(argument));
    }
    const std::string name(method->get_string());
    check(name, arguments, bench.echo->callMethod(name, arguments));
  } catch (const gk::messages::FormatError&) {
  } catch (const GK::GKError& error) {
    gk::fuzz::require(!error.getDescription().empty(), "a refusal says why");
  }
  return 0;
}
