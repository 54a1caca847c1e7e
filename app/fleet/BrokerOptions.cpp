#include "app/fleet/BrokerOptions.h"

#include "app/client/HostAddress.h"
#include "formats/text/Printable.h"
#include "gateway/http/Access.h"
#include "messages/fleet/BrokerAddress.h"
#include "messages/fleet/FleetTopics.h"
#include "messages/text/FormatError.h"

#include <fmt/format.h>

#include <cstdlib>
#include <fstream>
#include <sys/stat.h>
#include <tuple>
#include <utility>

namespace gk::app {

namespace {

/// The first line of a file that only its owner may read, "USER:PASSWORD"; what a service is handed
/// by systemd may be read by its group too.
std::pair<std::string, std::string> readLogin(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    throw messages::FormatError("--password-file: " + path + " cannot be read");
  }
  const char* credentials = std::getenv("CREDENTIALS_DIRECTORY");
  const bool isHanded = credentials != nullptr && *credentials != '\0' &&
                        path.starts_with(std::string(credentials) + "/");
  const mode_t forbidden = isHanded ? S_IWGRP | S_IRWXO : S_IRWXG | S_IRWXO;
  if ((status.st_mode & forbidden) != 0) {
    throw messages::FormatError("--password-file: " + path +
                                " can be read by others: its mode must be 0600");
  }
  std::ifstream file(path);
  std::string line;
  std::getline(file, line);
  const std::size_t colon = line.find(':');
  if (colon == std::string::npos || colon == 0) {
    throw messages::FormatError("--password-file: " + path +
                                ": the first line must be USER:PASSWORD");
  }
  return {line.substr(0, colon), line.substr(colon + 1)};
}

} // namespace

std::string defaultBroker() {
  const char* given = std::getenv("GK_FLEET");
  return given != nullptr && *given != '\0' ? given : "127.0.0.1:1883";
}

void addBrokerOptions(const Command& command, BrokerOptions& options) {
  command.section("Broker");
  command.option("--broker", options.broker, "mqtt:// or mqtts:// and HOST[:PORT]; else GK_FLEET")
      .shows("URL")
      .showsDefault();
  command.option("--root", options.root, "The first level of all topics")
      .shows("NAME")
      .showsDefault();
  command.option("--site", options.site, "Robots of this site alone").shows("NAME");
  command
      .option("--ca", options.caFile,
              "Who may have signed the broker's certificate; else whom the system trusts")
      .shows("FILE");
  command.option("--cert", options.certificateFile, "The certificate to show to the broker")
      .shows("FILE");
  command.option("--key", options.keyFile, "The certificate's key").shows("FILE");
  command
      .option("--password-file", options.passwordFile,
              "A file (mode 0600) with one line USER:PASSWORD for the broker")
      .shows("FILE");
}

void addJsonOption(const Command& command, BrokerOptions& options) {
  command.section("Options");
  command.flag("--json", options.isJson, "JSON for programs");
}

messages::MqttOptions mqttOptions(const BrokerOptions& options) {
  messages::BrokerAddress address;
  try {
    address = messages::parseBrokerAddress(options.broker, true);
  } catch (const messages::FormatError& error) {
    throw messages::FormatError(std::string("--broker: ") + error.what());
  }
  if (options.certificateFile.empty() != options.keyFile.empty()) {
    throw messages::FormatError("--cert and --key belong together");
  }
  messages::MqttOptions mqtt;
  mqtt.host = address.host;
  mqtt.port = address.port;
  if (address.isTls) {
    mqtt.tls = messages::MqttTls{options.caFile, options.certificateFile, options.keyFile};
  } else if (!options.caFile.empty() || !options.certificateFile.empty()) {
    throw messages::FormatError("--ca and --cert need a broker that is asked by mqtts://");
  }
  if (!options.passwordFile.empty()) {
    std::tie(mqtt.user, mqtt.password) = readLogin(options.passwordFile);
  }
  return mqtt;
}

void checkFleetNames(const BrokerOptions& options) {
  const auto check = [](const char* option, const std::string& name) {
    if (!messages::isTopicLevel(name)) {
      throw messages::FormatError(std::string(option) + ": " + name +
                                  " is no name: letters, digits, _, - and . make one");
    }
  };
  check("--root", options.root);
  if (!options.site.empty()) {
    check("--site", options.site);
  }
}

std::string siteFilter(const BrokerOptions& options) {
  return options.site.empty() ? "+" : options.site;
}

int runFleet(const std::function<int()>& work) {
  const auto tell = [](const char* what) {
    fmt::print(stderr, "gk fleet: {}\n", formats::printable(what));
  };
  try {
    return work();
  } catch (const UnknownName& error) {
    tell(error.what());
    return kBadInput;
  } catch (const ClientError& error) {
    tell(error.what());
  } catch (const messages::MqttError& error) {
    tell(error.what());
  } catch (const gateway::AccessError& error) {
    tell(error.what());
    return kBadInput;
  } catch (const messages::FormatError& error) {
    tell(error.what());
    return kBadInput;
  }
  return kFailure;
}

} // namespace gk::app
