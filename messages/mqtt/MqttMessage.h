#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>

namespace gk::messages {

/// Something about a connection to a broker cannot be: the text tells what, for a person.
class MqttError : public std::runtime_error {
public:
  using std::runtime_error::runtime_error;
};

/// An application message of MQTT 5 with the properties that we use.
struct MqttMessage {
  std::string topic;
  std::string payload;
  /// 0, 1 or 2.
  int qos = 0;
  bool isRetained = false;
  /// Where an answer is wanted; empty for nowhere.
  std::string responseTopic = {};
  /// What an answer has to bring along; any bytes.
  std::optional<std::string> correlation = std::nullopt;
  /// Seconds for which the message is worth delivering; for ever where there are none.
  std::optional<std::uint32_t> expiry = std::nullopt;
};

/// Reason codes of MQTT 5 that somebody has to tell apart (OASIS standard, section 2.4). From
/// `kMqttRefused` on a code says that something was not done.
enum MqttReason : int {
  kMqttNoSubscriber = 0x10, ///< delivered, to nobody
  kMqttRefused = 0x80,
  kMqttNotAuthorized = 0x87,
  kMqttQuotaExceeded = 0x97,
  kMqttSessionTakenOver = 0x8E
};

/// "not authorized": what a reason code says, in the standard's words.
std::string mqttReasonText(int reason);

} // namespace gk::messages
