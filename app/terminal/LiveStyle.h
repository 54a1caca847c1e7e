#pragma once

#include "formats/text/LiveRows.h"

#include <string>

namespace gk::app {

/// How standard output wants to be told what happens: with colours and folded repeats if it is a
/// terminal.
formats::LiveRows::Style liveStyle();

/// Whether a pattern means a name: with *, ? or [ the whole name, otherwise a part of it.
bool isNameMeant(const std::string& pattern, const std::string& name);

} // namespace gk::app
