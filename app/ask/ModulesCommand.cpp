#include "app/ask/AskCommands.h"
#include "app/client/HostClient.h"
#include "app/terminal/Table.h"
#include "formats/text/Printable.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

/// The first line of a description, without what surrounds it.
std::string firstLine(const std::string& text) {
  const std::string line = text.substr(0, text.find('\n'));
  const std::size_t end = line.find_last_not_of(' ');
  return end == std::string::npos ? std::string() : line.substr(0, end + 1);
}

int showModules(const ClientOptions& options) {
  HostClient client(options);
  if (options.isJson) {
    fmt::print("{}\n", client.get("/api/v1/modules"));
    return kSuccess;
  }
  std::vector<std::vector<std::string>> rows{{"MODULE", "METHODS", "DESCRIPTION"}};
  for (const json::value& module : client.getList("/api/v1/modules", "modules")) {
    rows.push_back({textMember(module, "name"),
                    fmt::format("{:.0f}", numberMember(module, "methods")),
                    firstLine(textMember(module, "description"))});
  }
  fmt::print("{}", tableText(rows));
  return kSuccess;
}

std::string signature(const json::value& method) {
  std::string text = textMember(method, "name") + "(";
  const char* separator = "";
  for (const json::value& param : listMember(method, "params")) {
    text += separator + textMember(param, "type") + " " + textMember(param, "name");
    separator = ", ";
  }
  const std::string result = textMember(member(method, "result"), "type");
  return text + (result.empty() ? ")" : ") -> " + result);
}

/// Who declares a method, where that is not the module itself but what it is made of.
std::string origin(const json::value& method, const json::value& module) {
  const std::string declarer = textMember(method, "module");
  const bool isOwn = declarer.empty() || declarer == textMember(module, "name");
  return isOwn ? std::string() : "  (of " + declarer + ")";
}

int describeModule(const ClientOptions& options, const std::string& name) {
  HostClient client(options);
  const std::string target = "/api/v1/modules/" + escapedPath(name);
  if (options.isJson) {
    fmt::print("{}\n", client.get(target));
    return kSuccess;
  }
  const json::value module = client.getJson(target);
  fmt::print("{} {}\n{}\n\nMethods:\n", textMember(module, "name"), textMember(module, "version"),
             textMember(module, "description"));
  for (const json::value& method : listMember(module, "methods")) {
    fmt::print("  {}{}\n      {}\n", signature(method), origin(method, module),
               firstLine(textMember(method, "description")));
    for (const json::value& param : listMember(method, "params")) {
      fmt::print("      {}: {}\n", textMember(param, "name"), textMember(param, "description"));
    }
  }
  const std::vector<json::value> events = listMember(module, "events");
  fmt::print("{}", events.empty() ? "" : "\nEvents:\n");
  for (const json::value& event : events) {
    const std::string_view text(event.get_string().data(), event.get_string().size());
    fmt::print("  {}\n", formats::printable(text));
  }
  return kSuccess;
}

} // namespace

void addModulesCommand(const Command& program) {
  const Command command = program.subcommand("modules", "List the modules of a running host");
  auto options = std::make_shared<ClientOptions>();
  addClientOptions(command, *options);
  command.does([options] { return runClient([&] { return showModules(*options); }); });
}

void addDescribeCommand(const Command& program) {
  const Command command =
      program.subcommand("describe", "Show a module's methods, their parameters, and its events");
  auto options = std::make_shared<ClientOptions>();
  auto name = std::make_shared<std::string>();
  command.option("MODULE", *name, "The module").required().shows("");
  addClientOptions(command, *options);
  command.does(
      [options, name] { return runClient([&] { return describeModule(*options, *name); }); });
}

} // namespace gk::app
