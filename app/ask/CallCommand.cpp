#include "app/ask/AskCommands.h"
#include "app/client/HostClient.h"
#include "formats/json/Json.h"
#include "formats/json/JsonText.h"
#include "formats/text/FormatError.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

bool isJsonText(const std::string& text) {
  try {
    formats::parseJson(text);
    return true;
  } catch (const formats::FormatError&) {
    return false;
  }
}

/// The types that the method's parameters have, where it takes so many of them.
std::vector<std::string> typesOf(const json::value& module, const std::string& method,
                                 std::size_t count) {
  for (const json::value& one : listMember(module, "methods")) {
    const std::vector<json::value> params = listMember(one, "params");
    if (textMember(one, "name") == method && params.size() == count) {
      std::vector<std::string> types;
      types.reserve(count);
      for (const json::value& param : params) {
        types.push_back(textMember(param, "type"));
      }
      return types;
    }
  }
  return {};
}

/// Words of a command line as JSON: what the method takes as text needs no quotes, nor does what is
/// no JSON.
std::string paramsOf(const std::vector<std::string>& words, const std::vector<std::string>& types) {
  std::string params = "[";
  for (std::size_t i = 0; i < words.size(); ++i) {
    params += i == 0 ? "" : ",";
    const bool isText = i < types.size() && types[i] == "string";
    if (!isText && isJsonText(words[i])) {
      params += words[i];
    } else {
      formats::appendJsonString(params, words[i]);
    }
  }
  return params + "]";
}

int callMethod(const ClientOptions& options, const std::string& method,
               const std::vector<std::string>& words) {
  const std::size_t dot = method.find('.');
  if (dot == std::string::npos) {
    throw ClientError(method + " is no method; GKBattery.getBatteryCharge would be one");
  }
  HostClient client(options);
  const json::value module =
      client.getJson("/api/v1/modules/" + escapedPath(method.substr(0, dot)));
  const std::string params = paramsOf(words, typesOf(module, method.substr(dot + 1), words.size()));
  const json::value result = client.call(method, params);
  if (options.isJson || !result.is_null()) {
    fmt::print("{}\n", valueText(result));
  }
  return kSuccess;
}

} // namespace

void addCallCommand(const Command& program) {
  const Command command = program.subcommand("call", "Call a bound method and show its result");
  auto options = std::make_shared<ClientOptions>();
  auto method = std::make_shared<std::string>();
  command.option("MODULE.METHOD", *method, "The method").required().shows("");
  // As what is left over: an option of several words would take "[1,2]" apart.
  const auto words = command.takesRest();
  command.footer(
      "Behind the method come its arguments: each is a number, true, false, a text, or JSON.");
  addClientOptions(command, *options);
  command.does([=] { return runClient([&] { return callMethod(*options, *method, words()); }); });
}

} // namespace gk::app
