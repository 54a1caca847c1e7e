#pragma once

#include "extensions/fleet/Outbox.h"
#include "gk/GKMemoryStore.h"
#include "messages/fleet/BrokerAddress.h"
#include "messages/mqtt/MqttTls.h"

#include <chrono>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

namespace gk::fleet {

/// What the memory keys below "Settings/GKFleet/" say.
struct FleetSettings {
  static constexpr const char* kPrefix = "Settings/GKFleet/";

  messages::BrokerAddress broker;
  std::string root;
  std::string site;
  std::string robot;
  /// Modules whose methods may be called over MQTT; "*" for all.
  std::vector<std::string> calls;
  OutboxOptions outbox;
  /// Entries of the backlog a second.
  double backlogRate = 200;
  std::chrono::seconds keepAlive{15};
  std::optional<messages::MqttTls> tls;
  std::string user;
  std::string password;
  /// Where this robot's page is; empty for none.
  std::string page;

  bool isAllowed(const std::string& module) const;
};

/// A setting is of no use. The text tells which and why, on one line.
class SettingError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// Reads them, and the files that they name. Raises `SettingError`.
FleetSettings readSettings(const GK::GKMemoryStore& store);

/// The first line of a file with a secret, "USER:PASSWORD" in two. Only its owner may have access
/// to it (mode 0600 or less; 0440 where the service manager gives credentials). Raises
/// `SettingError`.
std::pair<std::string, std::string> readPassword(const std::string& file);

} // namespace gk::fleet
