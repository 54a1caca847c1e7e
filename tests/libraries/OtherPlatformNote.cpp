#include "gk/GKApi.h"
#include "gk/GKModuleNote.h"

#include <cstdio>

// A library that was built for another platform. Should never run.

namespace {
const int kLoaded = std::puts("OtherPlatformNote was loaded");

__attribute__((section(".note.gk.module"), used, aligned(4)))
const GK::GKModuleNoteEntry kNote{.note = {.abi = "0.1", .version = "0.1.7"}};
} // namespace

extern "C" GK_API int _createModule() {
  return kLoaded;
}
