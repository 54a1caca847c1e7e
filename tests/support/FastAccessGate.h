#pragma once

#include "gk/GKMemoryFastAccess.h"

namespace GK {

/// Lets fast access connect again after modules that were here before have stopped it for the whole
/// process.
struct GKMemoryFastAccessGate {
  static void open() { GKMemoryFastAccess::static_bStopAllAccess = false; }
};

} // namespace GK
