#pragma once

#include "app/fleet/FleetCards.h"
#include "gateway/http/Access.h"

#include <cstdint>
#include <memory>
#include <string>

namespace gk::app {

/// Serves the fleet's page and its cards by HTTP, by the rules of a host's own gateway: `GET /`,
/// `GET /api/v1/fleet?after=N&session=S`, which waits until there is something new, `POST /login`
/// and `GET /livez`. For one thread but for `stop`.
class FleetServer {
public:
  /// Listens. Raises `AccessError` when the address cannot be used. `cards` outlives the server.
  FleetServer(gateway::AccessOptions options, const FleetCards& cards);
  ~FleetServer();
  FleetServer(const FleetServer&) = delete;
  FleetServer& operator=(const FleetServer&) = delete;

  /// "http://127.0.0.1:8092/".
  std::string url() const;

  /// Serves until `stop`.
  void run();
  /// Any thread.
  void stop();

private:
  class Server;
  std::unique_ptr<Server> fServer;
};

} // namespace gk::app
