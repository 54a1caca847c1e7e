#pragma once

#include "gateway/http/Resources.h"
#include "gateway/net/ByteStream.h"
#include "gateway/server/GatewayOptions.h"
#include "gateway/stream/Hub.h"

#include <boost/intrusive/list.hpp>

#include <functional>
#include <memory>
#include <set>

/// The connections of the gateway. Everything here runs on its one thread.
namespace gk::gateway {

struct ServerParts;

/// In a list until it goes.
using WokenHook =
    boost::intrusive::list_base_hook<boost::intrusive::link_mode<boost::intrusive::auto_unlink>>;

/// One client's connection, which owns itself while something is going on.
class Connection : public WokenHook {
public:
  explicit Connection(ServerParts& parts);
  virtual ~Connection();
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;

  /// Ends the connection as politely as its protocol can without waiting.
  virtual void goAway() = 0;
  /// Called now and then: gives a client up that does not read.
  virtual void checkStall() {}
  /// There may be something to write.
  virtual void write() {}

protected:
  ServerParts& fParts;
};

/// What connections need of their server.
struct ServerParts {
  Hub& hub;
  Resources& resources;
  Counters& counters;
  const GatewayOptions& options;
  std::set<Connection*> connections;
  /// Bytes of large answers that clients have not taken yet.
  std::size_t largeAnswers = 0;

  using Woken = boost::intrusive::list<Connection, boost::intrusive::constant_time_size<false>>;
  /// Those that have something to write, the first one first.
  Woken woken{};

  /// True for the first one: then somebody is to see to `writeWoken` in a moment.
  [[nodiscard]] bool wake(Connection& connection);
  void writeWoken();
};

/// Takes a new client. Beyond the limit of connections it is sent away.
void startConnection(ServerParts& parts, ByteStream::Socket socket);

} // namespace gk::gateway
