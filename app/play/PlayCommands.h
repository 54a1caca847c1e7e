#pragma once

#include "app/options/Command.h"

namespace gk::app {

/// Adds "play" to the program.
void addPlayCommand(const Command& program);

} // namespace gk::app
