#pragma once

#include "app/fleet/FleetBook.h"

#include <cstddef>
#include <string>
#include <vector>

namespace gk::app {

/// What robots are doing as a table of so many columns, in the order given. What needs attention is
/// marked with "!".
std::string fleetTable(const std::vector<const FleetRobot*>& robots, std::size_t columns);

/// "3 robots: 1 lost, 1 hot, 1 well".
std::string fleetSummary(const std::vector<const FleetRobot*>& robots);

} // namespace gk::app
