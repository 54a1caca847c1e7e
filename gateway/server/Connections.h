#pragma once

#include "gateway/http/Resources.h"
#include "gateway/server/GatewayOptions.h"
#include "gateway/stream/Hub.h"

#include <boost/asio/ip/tcp.hpp>

#include <functional>
#include <memory>
#include <set>

/// The connections of the gateway. Everything here runs on its one thread.
namespace gk::gateway {

class Connection;

/// What connections need of their server.
struct ServerParts {
  Hub& hub;
  Resources& resources;
  Counters& counters;
  const GatewayOptions& options;
  std::set<Connection*> connections;
  /// Bytes of large answers that clients have not taken yet.
  std::size_t largeAnswers = 0;
};

/// One client's connection, which owns itself while something is going on.
class Connection {
public:
  explicit Connection(ServerParts& parts);
  virtual ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Ends the connection as politely as its protocol can without waiting.
  virtual void goAway() = 0;
  /// Called now and then: gives a client up that does not read.
  virtual void checkStall() {}

protected:
  ServerParts& fParts;
};

/// Takes a new client. Beyond the limit of connections it is sent away.
void startConnection(ServerParts& parts, boost::asio::ip::tcp::socket socket);

} // namespace gk::gateway
