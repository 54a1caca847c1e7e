#pragma once

#include "app/fleet/FleetOptions.h"
#include "app/options/Command.h"

#include <memory>

namespace gk::app {

/// The commands of `gk fleet`. `options` are those that stand before the command; the command takes
/// them as well.
void addFleetListCommand(const Command& program, const std::shared_ptr<FleetOptions>& options);
void addFleetWatchCommand(const Command& program, const std::shared_ptr<FleetOptions>& options);
void addFleetEventsCommand(const Command& program, const std::shared_ptr<FleetOptions>& options);
void addFleetCallCommand(const Command& program, const std::shared_ptr<FleetOptions>& options);
void addFleetServeCommand(const Command& program, const std::shared_ptr<FleetOptions>& options);

} // namespace gk::app
