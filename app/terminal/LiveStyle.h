#pragma once

#include "formats/text/LiveRows.h"

namespace gk::app {

/// How standard output wants to be told what happens: with colours and folded repeats if it is a
/// terminal.
formats::LiveRows::Style liveStyle();

} // namespace gk::app
