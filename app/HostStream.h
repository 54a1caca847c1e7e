#pragma once

#include "app/HostClient.h"

#include <boost/json/value.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace gk::app {

/// What a host tells as it happens, over the same protocol that viewers use. For one thread.
class HostStream {
public:
  /// Each returns false to end the stream.
  struct Handlers {
    /// A message of the topic, with its JSON text.
    std::function<bool(std::string_view payload)> message;
    /// Values of watched keys that have changed: "name" and "value" each.
    std::function<bool(const std::vector<boost::json::value>&)> values;
  };

  /// `client` tells where and with which token; it must outlive the stream.
  explicit HostStream(HostClient& client);
  ~HostStream();
  HostStream(const HostStream&) = delete;
  HostStream& operator=(const HostStream&) = delete;

  /// Connects, subscribes to `topic` (empty for none) and watches `keys`, and calls the handlers
  /// until one of them ends it. What the host says about losses goes to standard error. Raises
  /// `ClientError` when the host cannot be reached or goes away.
  void run(const std::string& topic, const std::vector<std::string>& keys,
           const Handlers& handlers);

private:
  struct Link;
  std::unique_ptr<Link> fLink;
};

} // namespace gk::app
