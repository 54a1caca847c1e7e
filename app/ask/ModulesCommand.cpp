#include "app/ask/AskCommands.h"
#include "app/ask/FirstLine.h"
#include "app/client/HostClient.h"
#include "app/terminal/Table.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

namespace json = boost::json;

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
                    firstLineOf(textMember(module, "description"))});
  }
  fmt::print("{}", tableText(rows));
  return kSuccess;
}

} // namespace

void addModulesCommand(const Command& program) {
  const Command command = program.subcommand("modules", "List the modules of a running host");
  auto options = std::make_shared<ClientOptions>();
  addClientOptions(command, *options);
  command.does([options] { return runClient([&] { return showModules(*options); }); });
}

} // namespace gk::app
