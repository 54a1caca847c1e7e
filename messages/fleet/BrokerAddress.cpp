#include "messages/fleet/BrokerAddress.h"

#include "messages/json/JsonText.h"
#include "messages/text/FormatError.h"

#include <algorithm>
#include <charconv>
#include <optional>

namespace gk::messages {

namespace {

constexpr std::string_view kPlain = "mqtt://";
constexpr std::string_view kTls = "mqtts://";

/// What is said of everything that is none.
FormatError noAddress(std::string_view text, const std::string& why) {
  return FormatError(quotedText(text) + " is no broker's address: " + why);
}

std::optional<std::uint16_t> parsePort(std::string_view text) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), port);
  if (error != std::errc() || end != text.data() + text.size() || port == 0) {
    return std::nullopt;
  }
  return port;
}

bool isHost(std::string_view host) {
  return !host.empty() && std::ranges::none_of(host, [](char c) {
    return static_cast<unsigned char>(c) <= ' ' || c == '/' || c == '@' || c == '[' || c == ']' ||
           c == '?' || c == '#' || c == 0x7F;
  });
}

} // namespace

std::string BrokerAddress::url() const {
  const bool isSix = host.find(':') != std::string::npos;
  return std::string(isTls ? kTls : kPlain) + (isSix ? "[" + host + "]" : host) + ":" +
         std::to_string(port);
}

BrokerAddress parseBrokerAddress(std::string_view text, bool isShortFine) {
  BrokerAddress address;
  std::string_view rest = text;
  if (rest.starts_with(kTls)) {
    address.isTls = true;
    address.port = BrokerAddress::kTlsPort;
    rest.remove_prefix(kTls.size());
  } else if (rest.starts_with(kPlain)) {
    rest.remove_prefix(kPlain.size());
  } else if (!isShortFine || rest.find("://") != std::string_view::npos) {
    throw noAddress(text, "mqtt://HOST[:PORT] or mqtts://HOST[:PORT] is wanted");
  }
  if (rest.ends_with('/')) {
    rest.remove_suffix(1);
  }
  if (rest.find('@') != std::string_view::npos) {
    throw noAddress(text, "user and password do not stand in it");
  }
  std::optional<std::string_view> port;
  if (rest.starts_with('[')) {
    const std::size_t end = rest.find(']');
    if (end == std::string_view::npos) {
      throw noAddress(text, "a \"]\" is missing");
    }
    address.host = rest.substr(1, end - 1);
    rest.remove_prefix(end + 1);
    if (rest.starts_with(':')) {
      port = rest.substr(1);
    } else if (!rest.empty()) {
      throw noAddress(text, "only a port may follow the \"]\"");
    }
  } else {
    const std::size_t colon = rest.find(':');
    address.host = rest.substr(0, colon);
    if (colon != std::string_view::npos) {
      port = rest.substr(colon + 1);
    }
  }
  if (!isHost(address.host)) {
    throw noAddress(text, "there is no host in it");
  }
  if (port) {
    const auto number = parsePort(*port);
    if (!number) {
      throw noAddress(text, "a port is a number from 1 to 65535");
    }
    address.port = *number;
  }
  return address;
}

} // namespace gk::messages
