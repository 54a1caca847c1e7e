#pragma once

#include "formats/files/OutputError.h"

#include <string>

namespace gk::app {

/// One line on standard error.
void complain(const std::string& text);

/// The same for an output. Returns the exit code: a name that cannot be is bad input, all else a
/// failure.
int complainOf(const formats::OutputError& error);

} // namespace gk::app
