#include "app/run/FleetOptions.h"

#include "messages/fleet/BrokerAddress.h"
#include "messages/fleet/FleetTopics.h"
#include "messages/text/FormatError.h"

#include <utility>
#include <vector>

namespace gk::app {

namespace {

constexpr const char* kBrokerKey = "Settings/GKFleet/Url";
constexpr const char* kRobotNameKey = "Settings/GKFleet/Robot";

/// What is wrong with a --fleet; empty for nothing.
std::string checkBroker(const std::string& text) {
  try {
    messages::parseBrokerAddress(text);
    return {};
  } catch (const messages::FormatError& error) {
    return error.what();
  }
}

/// What is wrong with a --robot-name; empty for nothing.
std::string checkRobotName(const std::string& name) {
  return messages::isTopicLevel(name)
             ? std::string()
             : "a name of letters, digits, \"_\", \"-\" and \".\" is wanted";
}

} // namespace

void addFleetOptions(const Command& command, FleetOptions& options) {
  command.section("Fleet");
  const Option fleet =
      command
          .option("--fleet", options.broker,
                  "Tell this MQTT 5 broker what the robot reports: mqtt://HOST[:PORT], or mqtts:// "
                  "with TLS")
          .checked(checkBroker)
          .shows("URL");
  command
      .option("--robot-name", options.robotName,
              "With --fleet: what the robot is called there; this machine's name otherwise")
      .checked(checkRobotName)
      .shows("NAME")
      .needs(fleet);
}

FleetPlace fleetPlace(const FleetOptions& options) {
  const std::string host = messages::parseBrokerAddress(options.broker).host;
  const bool isHere = host == "localhost" || host == "::1" || host.starts_with("127.");
  return isHere ? FleetPlace::ThisMachine : FleetPlace::Elsewhere;
}

const ListeningLibrary& fleetLibrary() {
  // The first to come and the last to go: it tells of what the others raise meanwhile.
  static const ListeningLibrary library{"--fleet", "gkfleet", "gksensors-fleet", true};
  return library;
}

void applyFleetSettings(const FleetOptions& options, runtime::HostOptions& host) {
  // Before those of --setting, which win.
  std::vector<std::pair<std::string, GK::GKValue>> settings{{kBrokerKey, options.broker}};
  if (!options.robotName.empty()) {
    settings.emplace_back(kRobotNameKey, options.robotName);
  }
  host.settings.insert(host.settings.begin(), settings.begin(), settings.end());
}

} // namespace gk::app
