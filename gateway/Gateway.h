#pragma once

#include "gateway/Access.h"
#include "gateway/CarryOut.h"
#include "gateway/LoopFigures.h"
#include "gk/GKBroker.h"

#include <boost/shared_ptr.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>

namespace gk::gateway {

/// How much the gateway puts up with.
struct GatewayLimits {
  /// Bytes of a request's headers, of its body, and of a WebSocket message.
  std::uint32_t header = 8192;
  std::size_t body = 1U << 20U;
  std::size_t message = 1U << 20U;
  std::size_t connections = 512;
  std::size_t webSocketClients = 256;
  /// Calls of all clients that have not returned, and those of one WebSocket client.
  std::size_t calls = 128;
  std::size_t callsPerClient = 32;
  /// Bytes and events that wait for one WebSocket client.
  std::size_t clientBytes = 4U << 20U;
  std::size_t clientEvents = 4096;
  /// Until the headers are there, from the end of the request before on.
  std::chrono::milliseconds headerTime{15'000};
  /// Until the body is there, and until a response has been taken.
  std::chrono::milliseconds bodyTime{30'000};
  /// A WebSocket client that takes nothing for so long is given up.
  std::chrono::milliseconds stallTime{10'000};
};

struct GatewayOptions {
  AccessOptions access;
  GatewayLimits limits;
  std::string version;
  /// The clock by which clients are given up.
  std::function<std::chrono::steady_clock::time_point()> now = &std::chrono::steady_clock::now;
};

/// Serves a host to programs, viewers and browsers at one address: remote calls, resources,
/// figures, and streams over the Foxglove WebSocket protocol, on a thread of its own. Nothing in
/// the host ever waits for a client.
///
/// For one thread. Needs a clock of real time. Must outlive the broker's shutdown: calls of clients
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
  /// clients ask for.
  void open(boost::shared_ptr<GK::GKBroker> broker, LoopSource loops = {}, CarryOut carryOut = {});

  /// Sends all clients away and lets go of the broker. Before the broker's shutdown; a second time
  /// does nothing.
  void close();

private:
  class Server;
  std::unique_ptr<Server> fServer;
};

} // namespace gk::gateway
