#include "app/fleet/FleetCommands.h"
#include "app/options/CommandLine.h"
#include "app/session/Process.h"

#include <fmt/format.h>

#include <memory>
#include <string>
#include <vector>

namespace gk::app {

namespace {

void addFleetHelpCommand(const CommandLine& line) {
  const Command command =
      line.program().titled(kHelpTitle).subcommand("help", "Show the help of a command");
  auto names = std::make_shared<std::vector<std::string>>();
  command.option("COMMAND", *names, "The command, such as list").shows("");
  command.does([&line, names] {
    fmt::print("{}", line.help(*names));
    return static_cast<int>(kSuccess);
  });
}

constexpr const char* kFleetFooter = R"(Examples:
  gk fleet list                               all robots, those first that need somebody
  gk fleet --broker mqtts://broker.lan events 'Sonar*'   what their sonars see
  gk fleet call r17 GKBattery.getBatteryCharge   ask one of them
  gk fleet serve                              a page with a card for each

Environment:
  GK_FLEET  the broker where --broker is not given; else 127.0.0.1:1883

Exit codes: 0 done, 1 failed, 2 wrong input, option or name
)";

int runFleetProgram(int argc, char** argv) {
  const CommandLine line("gk fleet", "gk fleet: many robots, by way of an MQTT broker",
                         "gk fleet " GK_VERSION);
  const Command robots = line.program().titled("Robots");
  const auto options = std::make_shared<BrokerOptions>();
  addFleetListCommand(robots, options);
  addFleetWatchCommand(robots, options);
  addFleetEventsCommand(robots, options);
  addFleetCallCommand(robots, options);
  addFleetServeCommand(robots, options);
  addFleetHelpCommand(line);
  addBrokerOptions(line.program(), *options);
  line.program().footer(kFleetFooter);
  return line.run(argc, argv);
}

} // namespace

} // namespace gk::app

int main(int argc, char** argv) {
  return gk::app::runProcess("gk fleet", [&] { return gk::app::runFleetProgram(argc, argv); });
}
