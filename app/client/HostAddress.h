#pragma once

#include <stdexcept>
#include <string>
#include <string_view>

namespace gk::app {

/// Where clients and viewers can connect when nothing else is said.
constexpr const char* kDefaultAddress = "127.0.0.1:8090";

/// Something asked of a host has failed; `what()` tells what, on one line.
class ClientError : public std::runtime_error {
public:
  explicit ClientError(const std::string& what, unsigned status = 0)
      : std::runtime_error(what), fStatus(status) {}

  /// The HTTP status of a refusal; 0 when the host could not be reached.
  unsigned status() const noexcept { return fStatus; }

private:
  unsigned fStatus;
};

/// A name that the host does not know.
class UnknownName : public ClientError {
public:
  using ClientError::ClientError;
};

/// Where a host is, taken apart.
struct HostAddress {
  std::string name;
  std::string port;

  /// As it stands in requests: "127.0.0.1:8090".
  std::string text() const;
};

/// Reads "robot:8090", "[::1]:8090", "robot" or "http://robot:8090/". Raises `ClientError`.
HostAddress parseHost(std::string_view text);

} // namespace gk::app
