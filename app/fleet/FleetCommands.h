#pragma once

#include "app/fleet/BrokerOptions.h"
#include "app/options/Command.h"

#include <memory>

namespace gk::app {

/// The commands of `gk fleet`. `options` are those that stand before the command; the command takes
/// them as well.
void addFleetListCommand(const Command& program, const std::shared_ptr<BrokerOptions>& options);
void addFleetWatchCommand(const Command& program, const std::shared_ptr<BrokerOptions>& options);
void addFleetEventsCommand(const Command& program, const std::shared_ptr<BrokerOptions>& options);
void addFleetCallCommand(const Command& program, const std::shared_ptr<BrokerOptions>& options);
void addFleetServeCommand(const Command& program, const std::shared_ptr<BrokerOptions>& options);

} // namespace gk::app
