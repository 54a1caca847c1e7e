#pragma once

#include "gateway/figures/LoopFigures.h"
#include "gateway/robot/CarryOut.h"
#include "gateway/server/GatewayOptions.h"
#include "gk/GKBroker.h"

#include <boost/shared_ptr.hpp>

#include <cstdint>
#include <memory>
#include <string>

namespace gk::gateway {

/// Serves a host to programs, viewers and browsers at one address: remote calls, resources,
/// figures, and streams over the Foxglove WebSocket protocol, on a thread of its own. Nothing in
/// the host ever waits for a client.
///
/// For one thread. Must outlive the broker's shutdown: calls of clients
/// are tasks that the shutdown waits for.
class Gateway {
public:
  /// Listens, and observes what happens from now on; until `open` it only tells that it is alive.
  /// Raises `AccessError` when the address cannot be used.
  explicit Gateway(GatewayOptions options);
  ~Gateway();
  Gateway(const Gateway&) = delete;
  Gateway& operator=(const Gateway&) = delete;

  /// The port that is listened to.
  std::uint16_t port() const noexcept;
  /// "http://127.0.0.1:8090/".
  std::string url() const;

  /// From now on the modules of `broker` can be used. `loops` gives the figures of its loops, on
  /// any thread until `close`; empty where nobody measures them. `carryOut`, if given, does what
  /// clients ask for. `outside`, if given, is where tasks are started: on a clock that does not let
  /// every thread do so, and then `carryOut` has to see to that as well.
  void open(boost::shared_ptr<GK::GKBroker> broker, LoopSource loops = {}, CarryOut carryOut = {},
            Outside outside = {});

  /// Sends all clients away and lets go of the broker. Before the broker's shutdown; a second time
  /// does nothing.
  void close();

private:
  class Server;
  std::unique_ptr<Server> fServer;
};

} // namespace gk::gateway
