#include "gk/GKApi.h"
#include "gk/GKModuleNote.h"

#include <cstdio>

// A library that was built for another C++ library. Should never run.

namespace {
const int kLoaded = std::puts("OtherStringsNote was loaded");

__attribute__((section(".note.gk.module"), used, aligned(4)))
const GK::GKModuleNoteEntry kNote{.note = {.cxxLibrary = "libstdc++ with old strings"}};
} // namespace

extern "C" GK_API int _createModule() {
  return kLoaded;
}
