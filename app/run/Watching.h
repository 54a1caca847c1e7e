#pragma once

#include <string>
#include <vector>

namespace gk::app {

/// Runs this program with `arguments` at once, and again each time that one of `files` has changed,
/// until it is interrupted. What it says goes where this process's output goes. Returns only when
/// it cannot be started.
int runOnChanges(const std::vector<std::string>& arguments, const std::vector<std::string>& files);

} // namespace gk::app
