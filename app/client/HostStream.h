#pragma once

#include "app/client/HostClient.h"

#include <boost/json/value.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace gk::app {

/// A channel as a host announces it.
struct HostChannel {
  std::uint32_t id = 0;
  std::string topic;
  std::string encoding;
  std::string schemaName;
  std::string schemaEncoding;
  std::string schema;
};

/// What a host tells as it happens, over the same protocol that viewers use. For one thread.
class HostStream {
public:
  /// Any may be missing. Those that return something return false to end the stream.
  struct Handlers {
    /// Whether to subscribe to a channel that the host announces; to none without this.
    std::function<bool(const HostChannel&)> wants;
    /// A message of such a channel, with its time in nanoseconds since 1970.
    std::function<bool(const HostChannel&, std::uint64_t time, std::string_view payload)> message;
    /// Values of watched keys that have changed: "name" and "value" each.
    std::function<bool(const std::vector<boost::json::value>&)> values;
    /// What the host has to say, about losses for instance; to standard error without this.
    std::function<void(const std::string&)> status;
    /// Called between messages, several times a second when there are none.
    std::function<bool()> meanwhile;
  };

  /// `client` tells where and with which token; it must outlive the stream.
  explicit HostStream(HostClient& client);
  ~HostStream();
  HostStream(const HostStream&) = delete;
  HostStream& operator=(const HostStream&) = delete;

  /// Connects, watches `keys`, and calls the handlers until one of them ends it. Raises
  /// `ClientError` when the host cannot be reached or goes away, and what handlers raise.
  void run(const std::vector<std::string>& keys, const Handlers& handlers);

private:
  struct Link;
  std::unique_ptr<Link> fLink;
};

} // namespace gk::app
