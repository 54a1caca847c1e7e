#include "gk/GKApi.h"

#include <cstdio>

// A library that was built without a note. Should never run.

namespace {
const int kLoaded = std::puts("NoNote was loaded");
} // namespace

extern "C" GK_API int _createModule() {
  return kLoaded;
}
