#pragma once

#include "app/options/Command.h"

namespace gk::app {

/// Commands about recordings. Each adds one subcommand to the program.
void addRecordCommand(const Command& program);
void addKeepCommand(const Command& program);
void addRecordingCommand(const Command& program);
void addDiffCommand(const Command& program);

} // namespace gk::app
