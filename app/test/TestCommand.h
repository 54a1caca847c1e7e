#pragma once

#include "app/options/Command.h"

namespace gk::app {

/// Adds `gk test` to the program.
void addTestCommand(const Command& program);

} // namespace gk::app
