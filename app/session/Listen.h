#pragma once

#include "app/client/HostAddress.h"
#include "app/options/Command.h"
#include "devices/ClientLimits.h"
#include "gateway/figures/LoopFigures.h"
#include "gateway/figures/RecordingFigures.h"
#include "runtime/figures/LoopStatistics.h"

#include <memory>
#include <string>
#include <vector>

namespace gk::gateway {
class Gateway;
}

namespace gk::app {

/// Where and for whom a host listens, as it stands on the command line.
struct ListenOptions {
  std::string address = kDefaultAddress;
  /// Somebody wants this address and no other.
  bool isAddressGiven = false;
  bool isOff = false;
  std::string tokenFile;
  std::vector<std::string> hosts;
  std::vector<std::string> origins;
};

void addListenOptions(const Command& command, ListenOptions& options);

/// Begins to listen. Null when that is off, or when the default
/// address is taken by another host: then people are told on their terminal. `recording` must stay
/// valid as long as the gateway. Raises `AccessError`.
std::unique_ptr<gateway::Gateway> startGateway(const ListenOptions& options,
                                               const devices::ClientLimits& limits,
                                               gateway::RecordingSource recording);

/// Says on standard error where clients can connect: to people, and to whoever chose the address.
void announce(const gateway::Gateway& gateway, const ListenOptions& options);

/// The host's figures of its loops as clients get them: in seconds.
std::vector<gateway::LoopFigures> loopFigures(const std::vector<runtime::LoopReport>& reports);

} // namespace gk::app
