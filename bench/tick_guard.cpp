#include "bench/BenchLibrary.h"

// Ticks to be counted by an instrument: how many instructions a tick takes does not depend on what
// else the machine does. See check.sh.

namespace {

constexpr int kTicks = 1000;

} // namespace

// Names that the instrument finds.
extern "C" {

__attribute__((noinline)) void gkSteadyTicks(gk::bench::Library& library) {
  for (int i = 0; i < kTicks; ++i) {
    library.tick();
  }
}

__attribute__((noinline)) void gkBusyTicks(gk::bench::Library& library) {
  for (int i = 0; i < kTicks; ++i) {
    library.changeEverything();
    library.tick();
  }
}
}

int main() {
  gk::bench::Library library;
  gkSteadyTicks(library);
  gkBusyTicks(library);
}
