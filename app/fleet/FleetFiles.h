#pragma once

#include "gateway/http/StaticFiles.h"

#include <span>

namespace gk::gateway {

/// All files of the fleet's page, as `staticFiles` gives those of the robot's.
std::span<const StaticFile> fleetFiles();

} // namespace gk::gateway
