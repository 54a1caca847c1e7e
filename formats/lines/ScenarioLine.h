#pragma once

#include "formats/lines/Action.h"
#include "messages/json/KeyTypes.h"
#include "messages/text/FormatError.h"

#include <optional>
#include <string_view>

namespace gk::formats {

/// One line of a scenario.
struct ScenarioLine {
  /// Seconds from the start; absent for what comes before loading.
  std::optional<double> time;
  Action action;
};

/// True for lines that ask for nothing: blank ones and those that begin with "#".
bool isScenarioComment(std::string_view text);

/// Reads one line: an object with at most a time and exactly one action, which is allowed at that
/// time. Raises `FormatError`. The order of times is the caller's to check.
ScenarioLine parseScenarioLine(std::string_view text, const messages::KeyTypeOf& keyTypeOf);

} // namespace gk::formats
