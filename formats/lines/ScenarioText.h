#pragma once

#include "formats/lines/Action.h"
#include "gk/GKTime.h"

#include <optional>
#include <string>

namespace gk::formats {

/// Appends the line of a scenario that asks for `action`, without its newline. `time` is absent for
/// what comes before loading.
void appendScenarioLine(std::string& out, std::optional<GK::GKMicros> time, const Action& action);

} // namespace gk::formats
