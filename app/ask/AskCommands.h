#pragma once

#include "app/options/CommandLine.h"

namespace gk::app {

/// Commands that ask a running host. Each adds one subcommand to the program.
void addModulesCommand(const Command& program);
void addDescribeCommand(const Command& program);
void addCallCommand(const Command& program);
void addGetCommand(const Command& program);
void addSetCommand(const Command& program);
void addKeysCommand(const Command& program);
void addEventsCommand(const Command& program);
void addWatchCommand(const Command& program);
void addTopCommand(const Command& program);
void addDoctorCommand(const Command& program);
void addCompletionCommand(const CommandLine& line);

} // namespace gk::app
