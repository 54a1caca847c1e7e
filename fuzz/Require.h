#pragma once

#include <cstdio>
#include <cstdlib>

namespace gk::fuzz {

/// Ends the process, as a finding, when something that must always hold does not.
inline void require(bool holds, const char* what) {
  if (!holds) {
    std::fprintf(stderr, "does not hold: %s\n", what);
    std::abort();
  }
}

} // namespace gk::fuzz
