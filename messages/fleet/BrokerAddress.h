#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace gk::messages {

/// Where an MQTT broker is reached.
struct BrokerAddress {
  static constexpr std::uint16_t kPort = 1883;
  static constexpr std::uint16_t kTlsPort = 8883;

  std::string host;
  std::uint16_t port = kPort;
  bool isTls = false;

  /// "mqtt://host:1883".
  std::string url() const;
};

/// Reads "mqtt://HOST[:PORT]" or "mqtts://HOST[:PORT]"; an IPv6 address stands in brackets. With
/// `isShortFine` "HOST[:PORT]" alone is MQTT without TLS. Raises `FormatError`, which quotes the
/// text.
BrokerAddress parseBrokerAddress(std::string_view text, bool isShortFine = false);

} // namespace gk::messages
