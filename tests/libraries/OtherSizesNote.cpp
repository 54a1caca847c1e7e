#include "gk/GKApi.h"
#include "gk/GKModuleNote.h"

#include <cstdio>

// A library that was built for an unreleased platform. Should never run.

namespace {
const int kLoaded = std::puts("OtherSizesNote was loaded");

__attribute__((section(".note.gk.module"), used, aligned(4)))
const GK::GKModuleNoteEntry kNote{.note = {.sizeOfModule = 8}};
} // namespace

extern "C" GK_API int _createModule() {
  return kLoaded;
}
