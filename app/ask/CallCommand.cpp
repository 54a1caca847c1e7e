#include "app/ask/AskCommands.h"
#include "app/client/HostClient.h"
#include "app/client/Words.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

/// The method's parameters, where it takes so many of them.
std::vector<json::value> parametersOf(const json::value& module, const std::string& method,
                                      std::size_t count) {
  for (const json::value& one : listMember(module, "methods")) {
    std::vector<json::value> params = listMember(one, "params");
    if (textMember(one, "name") == method && params.size() == count) {
      return params;
    }
  }
  return {};
}

/// Words of a command line as JSON. `parameters` are empty where it is unknown what they are.
std::string paramsOf(const std::vector<std::string>& words,
                     const std::vector<json::value>& parameters) {
  std::string params = "[";
  for (std::size_t i = 0; i < words.size(); ++i) {
    const json::value parameter = parameters.empty() ? json::value() : parameters[i];
    params += i == 0 ? "" : ",";
    params += jsonOfWord(words[i], textMember(parameter, "type"), textMember(parameter, "name"));
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
  json::value module;
  try {
    module = client.getJson("/api/v1/modules/" + escapedPath(method.substr(0, dot)));
  } catch (const UnknownName&) { // NOLINT(bugprone-empty-catch)
    // The call tells what is wrong, if anything is: a host that plays a recording describes none.
  }
  const std::string params =
      paramsOf(words, parametersOf(module, method.substr(dot + 1), words.size()));
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
  command.footer("Behind the method come its arguments: each is a number, true, false, on, off, a "
                 "text, or JSON.");
  addClientOptions(command, *options);
  command.does([=] { return runClient([&] { return callMethod(*options, *method, words()); }); });
}

} // namespace gk::app
