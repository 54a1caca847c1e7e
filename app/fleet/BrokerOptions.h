#pragma once

#include "app/options/Command.h"
#include "messages/mqtt/MqttClient.h"

#include <functional>
#include <string>

namespace gk::app {

/// The broker that is asked where no option names one.
std::string defaultBroker();

/// Which broker, and which part of what it carries.
struct BrokerOptions {
  /// What GK_FLEET says, else a broker on this machine.
  std::string broker = defaultBroker();
  std::string root = "gk";
  /// Empty for all sites.
  std::string site;
  std::string caFile;
  std::string certificateFile;
  std::string keyFile;
  std::string passwordFile;
  bool isJson = false;
};

/// Adds --broker and what belongs to it.
void addBrokerOptions(const Command& command, BrokerOptions& options);
void addJsonOption(const Command& command, BrokerOptions& options);

/// What the options say about the connection. Reads the password file. Raises `FormatError` that
/// names the option.
messages::MqttOptions mqttOptions(const BrokerOptions& options);

/// Raises `FormatError` for a root or site that cannot be one.
void checkFleetNames(const BrokerOptions& options);
/// The site as it stands in filters: "+" for all.
std::string siteFilter(const BrokerOptions& options);

/// A command's work, with errors told in one line on standard error. Returns the exit code.
int runFleet(const std::function<int()>& work);

} // namespace gk::app
