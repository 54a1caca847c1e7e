#pragma once

#include "app/options/Journal.h"
#include "formats/files/OutputError.h"

#include <string>

namespace gk::app {

/// One line on standard error, with the program's name before it.
void complain(const std::string& text, Severity severity = Severity::Error);

/// The same for a text that names a place of its own, "FILE:3: ...".
void complainAsItStands(const std::string& line);

/// The same for an output. Returns the exit code: a name that cannot be is bad input, all else a
/// failure.
int complainOf(const formats::OutputError& error);

} // namespace gk::app
