#pragma once

#include "app/options/Command.h"

/// Commands for those who write modules.
namespace gk::app {

void addLibraryCommand(const Command& program);
void addNewCommand(const Command& program);

} // namespace gk::app
