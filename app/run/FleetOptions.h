#pragma once

#include "app/options/Command.h"
#include "app/run/ListeningLibrary.h"
#include "app/session/Listen.h"
#include "runtime/host/Host.h"

#include <string>

namespace gk::app {

/// Whose fleet a run belongs to, and under which name, as it stands on the command line.
struct FleetOptions {
  /// The broker's address; empty for no fleet.
  std::string broker;
  std::string robotName;

  bool isOn() const { return !broker.empty(); }
};

void addFleetOptions(const Command& command, FleetOptions& options);

/// Where the broker is.
FleetPlace fleetPlace(const FleetOptions& options);

/// The library of the bridge.
const ListeningLibrary& fleetLibrary();
void applyFleetSettings(const FleetOptions& options, runtime::HostOptions& host);

} // namespace gk::app
