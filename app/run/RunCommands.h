#pragma once

#include "app/options/Command.h"

namespace gk::app {

/// Commands that run a host. Each adds one subcommand to the program.
void addRunCommand(const Command& program);
void addReplayCommand(const Command& program);

} // namespace gk::app
