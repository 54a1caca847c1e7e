#pragma once

#include "app/client/HostAddress.h"
#include "app/options/Command.h"
#include "devices/ClientLimits.h"
#include "gateway/figures/LoopFigures.h"
#include "gateway/figures/RecordingFigures.h"
#include "gateway/figures/RunSource.h"
#include "runtime/figures/LoopStatistics.h"

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace gk::gateway {
class Gateway;
class Playback;
} // namespace gk::gateway

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
  /// Seconds of the past that are kept.
  double past = 600;
};

void addListenOptions(const Command& command, ListenOptions& options);

/// What serves the clients of a run.
struct Listening {
  /// Null when that is off, or when the default address is taken.
  std::unique_ptr<gateway::Gateway> gateway;
  /// For people, on one line: the address, or why there is none and who has it.
  std::string text;
};

/// Begins to listen. `recording` must stay valid as long as the gateway; `playback` is what is
/// served in the place of a robot, null for a robot; `source` tells where a run comes from. Raises
/// `AccessError`.
Listening startGateway(const ListenOptions& options, const devices::ClientLimits& limits,
                       gateway::RecordingSource recording,
                       std::shared_ptr<gateway::Playback> playback = nullptr,
                       std::shared_ptr<const gateway::RunSource> source = nullptr);

enum class FleetPlace : std::uint8_t { None, ThisMachine, Elsewhere };

/// Where the page of a robot of a fleet is for those who are where its broker is; empty where they
/// cannot reach it. `gateway` may be null.
std::string pageFor(FleetPlace fleet, const gateway::Gateway* gateway,
                    const ListenOptions& options);

/// Whether the page was there when the program was built.
bool hasPage();

/// The host's figures of its loops as clients get them: in seconds.
std::vector<gateway::LoopFigures> loopFigures(const std::vector<runtime::LoopReport>& reports);

} // namespace gk::app
