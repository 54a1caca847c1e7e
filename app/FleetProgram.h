#pragma once

#include "app/options/Command.h"

namespace gk::app {

/// Commands of many robots are a program of their own, gk-fleet, which comes with its package.

/// Shows the command in the help; `replacedByFleet` does what it asks for.
void addFleetCommand(const Command& program);

/// Becomes gk-fleet where the line says `gk fleet ...` or `gk help fleet ...`. Returns the exit
/// code where that program is missing, -1 where the line says something else.
int replacedByFleet(int argc, char** argv);

} // namespace gk::app
