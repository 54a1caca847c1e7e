#include "app/client/HostAddress.h"

#include <charconv>
#include <cstdint>

namespace gk::app {

namespace {

constexpr const char* kDefaultPort = "8090";

bool isPort(std::string_view text) {
  std::uint16_t port = 0;
  const auto [end, error] = std::from_chars(text.begin(), text.end(), port);
  return error == std::errc() && end == text.end() && port > 0;
}

} // namespace

std::string HostAddress::text() const {
  return (name.find(':') != std::string::npos ? "[" + name + "]" : name) + ":" + port;
}

HostAddress parseHost(std::string_view text) {
  constexpr std::string_view scheme = "http://";
  std::string_view rest = text;
  if (rest.starts_with(scheme)) {
    rest.remove_prefix(scheme.size());
  }
  rest = rest.substr(0, rest.find('/'));
  HostAddress address{std::string(rest), kDefaultPort};
  const std::size_t bracket = rest.find(']');
  const std::size_t colon = rest.find(':', bracket == std::string_view::npos ? 0 : bracket);
  if (colon != std::string_view::npos) {
    address.name = rest.substr(0, colon);
    address.port = rest.substr(colon + 1);
  }
  if (address.name.starts_with('[') && address.name.ends_with(']')) {
    address.name = address.name.substr(1, address.name.size() - 2);
  }
  if (address.name.empty() || !isPort(address.port)) {
    throw ClientError(std::string(text) + " is no host; 127.0.0.1:8090 would be one");
  }
  return address;
}

} // namespace gk::app
